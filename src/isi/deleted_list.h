// The list of deleted records: their positions, 126 to a node.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Adds the record at `currentLfa`. With options w, v and s nothing is kept. 0, or -8 and a message when a full node
/// could not be written.
[[nodiscard]] StatusCode appendDeletedRecord(RunContext& run);

/// Writes the node still being filled, if it holds anything, at the file's position, where it becomes the first of the
/// list; `previousListPointer` then is the list's head. -157 and a message when that fails.
[[nodiscard]] StatusCode finishDeletedList(RunContext& run);

}  // namespace tarnvale
