// The deleted-record list of an index that is compacted.
#pragma once

#include "common/run_context.h"
#include "isi/tree_cursor.h"

namespace tarnvale {

/// Walks the list, where one is kept, before anything is overwritten. -3 when a node cannot be read or is damaged, or
/// the list has no end.
[[nodiscard]] StatusCode checkDeletedList(IsiHandle& handle);

/// Writes the list behind the header area and the root, in its order, or discards it for files whose deleted records
/// are not kept; counts its positions in `deletedRecordCount`. The output then ends behind the list, and its position
/// is there. -3 a node cannot be read or is damaged, -157 a write fails.
[[nodiscard]] StatusCode carryDeletedList(RunContext& run, IsiHandle& handle);

}  // namespace tarnvale
