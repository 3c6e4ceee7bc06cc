// The locks that order a compaction against the applications that use its data file.
//
// All are POSIX record locks on two agreed places at the very end of the offset space of the data file. Closing any
// descriptor of the data file gives up the process's locks on it, so it is opened nowhere else meanwhile.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/file_name.h"

namespace tarnvale {

/// The data file of an index, open for its locks only.
struct DataFileLock {
  int fd = -1;
  FixedText<256> name;
  bool updateLockHeld = false;
};

enum class LockResult : std::uint8_t {
  granted,
  notOpened,         // the data file cannot be opened, or is no regular file
  accessRefused,     // another process holds the access byte
  updateRefused,     // the update bytes cannot be locked
  dataFileTruncated  // it is empty, but the index has records
};

/// Opens the data file and takes its access byte for this process alone; refused at once when another process holds
/// it. `recordCount` is what the index says.
[[nodiscard]] LockResult lockExclusive(DataFileLock& lock, std::uint32_t recordCount);

/// Opens the data file, shares the access byte and waits for the update bytes, to write them `inPlace`.
[[nodiscard]] LockResult lockShared(DataFileLock& lock, bool inPlace);

/// Shares the access byte of an open data file and waits until nobody rewrites an index of it. The lock holds until
/// the descriptor is closed.
[[nodiscard]] LockResult lockForReading(int fd);

/// Gives up the update bytes. False when the system refuses.
bool releaseCompactLock(DataFileLock& lock);

/// Closes the data file, which gives up the access byte.
void closeDataFileLock(DataFileLock& lock);

}  // namespace tarnvale
