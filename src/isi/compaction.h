// Compaction: an index rebuilt from its own entries, with full nodes, in place or into a new file.
#pragma once

#include "cmdline/settings.h"
#include "common/failure.h"
#include "common/messages.h"
#include "isi/data_file_lock.h"
#include "isi/index_cursor.h"
#include "isi/tree_builder.h"
#include "sort/sorter.h"

namespace tarnvale {

struct Compaction {
  bool inPlace = false;     // the index open as FileRole::input is rewritten; FileRole::index is closed then
  bool backupMade = false;  // a whole copy of the index stands beside it
  DataFileLock lock;
  IsiHandle handle;
  IndexCursor cursor;
};

/// Compacts the open index FileRole::input. The data file is not read, only locked; the caller releases the locks. In
/// place a backup is made before the index is touched. A failure has its detail printed; its code and its file say the
/// rest. `memory` must outlive the run of the sorter.
[[nodiscard]] Failure compactIndex(const Settings& settings, Compaction& compaction, Sorter& sorter,
                                   const SortMemory& memory, const SortLimits& limits, IndexBuilder& builder,
                                   TrackedFiles& files, Messages& messages);

}  // namespace tarnvale
