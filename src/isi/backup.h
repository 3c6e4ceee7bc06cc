// The copy beside an index that is rewritten in place.
//
// It is whole and on stable storage before the first byte of the index is overwritten, and goes away only when the new
// index is. When an index cannot be restored from it, it stays.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Copies the open index to its name with ".bak" appended, syncs the copy and its directory, and sets
/// compact_option::backupMade. -167, and a message, when that fails; no backup is left then.
[[nodiscard]] StatusCode makeBackup(RunContext& run);

/// Copies the backup over the index and removes it. -168, and a message, when that fails; the backup stays then.
[[nodiscard]] StatusCode restoreBackup(RunContext& run);

/// Closes and deletes the backup, if there is one, and frees the copy buffer.
void removeBackup(RunContext& run);

}  // namespace tarnvale
