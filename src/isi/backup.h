// The copy beside an index that is rewritten in place.
//
// It is whole and on stable storage before the first byte of the index is overwritten, and goes away only when the new
// index is. When an index cannot be restored from it, it stays. It is tracked as FileRole::backup, the index as
// FileRole::input.
#pragma once

#include <string_view>

#include "common/messages.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// The name of the backup of an index. False when it does not fit.
[[nodiscard]] bool backupNameOf(std::string_view indexName, FileName& backupName);

/// Copies the open index, and syncs the copy and its directory. `keepFd` is a further descriptor whose file must not
/// become the copy. False, and a message, when that fails; no backup is left then.
[[nodiscard]] bool makeBackup(TrackedFiles& files, int keepFd, Messages& messages);

/// Copies the backup over the index and removes it. False, and a message, when that fails; the backup stays then.
[[nodiscard]] bool restoreBackup(TrackedFiles& files, Messages& messages);

/// Closes and deletes the backup, if it is open.
void removeBackup(TrackedFiles& files);

}  // namespace tarnvale
