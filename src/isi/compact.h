// Compaction: an index rebuilt from its own entries, with full nodes, in place or into a new file.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Compacts the open index `inputFd` into `outputFd`, which is the same handle when it works in place. The data file is
/// not read, only locked; the driver releases the locks. In place a backup is made before the index is touched, and
/// compact_option::backupMade tells that it is whole. 0, or a code of the compaction, the cursor, the locks or the
/// merge.
[[nodiscard]] StatusCode compactIndex(RunContext& run);

}  // namespace tarnvale
