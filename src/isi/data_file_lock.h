// The record locks by which a compaction and running applications keep out of each other's way.
//
// They are POSIX record locks on agreed bytes at the very end of the 64-bit offset space of the data file, beyond any
// data. The access byte says that the file is in use; the update bytes say that the index is being changed. Closing any
// descriptor of a file gives up all locks of the process on it, so the data file is open only once.
#pragma once

#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

struct DataFileLock {
  int fd = -1;  // of the data file; closed by the driver
  bool updateLockHeld = false;
  std::uint64_t dataFileLength = 0;  // bytes, when the file was opened
};

/// Opens the data file named in `isiDataFileName` and takes the locks of the chosen form. Exclusive form: a write lock
/// on the access byte, refused when anybody uses the file; -170. Form with locking: a read lock on the access byte,
/// then, waiting as long as it takes, the update lock, to write when the index is compacted in place; -169. -7: no
/// memory. `recordCount` is the index header's: an empty data file cannot have that many.
[[nodiscard]] StatusCode lockDataFile(RunContext& run, std::uint32_t recordCount);

/// Takes the locks of a reader on the open data file `lock.fd`: at once the shared access lock, then, as soon as nobody
/// changes the index, the update lock. Non-zero when they cannot be had: -3 when somebody uses the file alone.
[[nodiscard]] StatusCode lockForReading(DataFileLock& lock);

/// Gives up the update lock when it is held. 0, -1 no file, -2 refused.
StatusCode ReleaseCompactLock(DataFileLock& lock);

}  // namespace tarnvale
