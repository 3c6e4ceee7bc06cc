#include "isi/data_file_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr off_t accessOffset = 0x7FFFFFFFFFFFFFFF;
constexpr off_t accessLength = 1;
constexpr off_t updateOffset = 0x7FFFFFFFFFFFFFFD;
constexpr off_t updateLength = 2;
constexpr useconds_t pauseMicroseconds = 100;

constexpr StatusCode noDataFile = -1;
constexpr StatusCode releaseRefused = -2;
constexpr StatusCode heldByOther = -3;
constexpr StatusCode lockRefused = -4;

bool requestLock(int fd, int command, short type, off_t offset, off_t length) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = offset;
  lock.l_len = length;
  int result = 0;
  do {
    result = ::fcntl(fd, command, &lock);
  } while (result != 0 && errno == EINTR && command == F_SETLK);
  return result == 0;
}

// Takes the access byte, to write in the exclusive form. A file system that knows no such locks (EINVAL) is no
// obstacle.
StatusCode takeAccessLock(const DataFileLock& lock, short type) {
  if (lock.fd < 0) return noDataFile;
  if (requestLock(lock.fd, F_SETLK, type, accessOffset, accessLength) || errno == EINVAL) return status::success;
  const bool held = errno == EACCES || errno == EAGAIN || errno == EDEADLK || errno == ENOLCK;
  return held ? heldByOther : lockRefused;
}

// Waits for the update bytes. Only a lock that another process holds is worth waiting for.
StatusCode takeUpdateLock(DataFileLock& lock, bool inPlace) {
  const short type = inPlace ? F_WRLCK : F_RDLCK;
  while (!requestLock(lock.fd, F_SETLKW, type, updateOffset, updateLength)) {
    if (errno != EINTR && errno != EAGAIN && errno != EACCES) return lockRefused;
    ::usleep(pauseMicroseconds);
  }
  lock.updateLockHeld = true;
  return status::success;
}

bool openDataFile(RunContext& run) {
  const InterruptHold hold;
  run.compactLockFd = ::open(run.isiDataFileName.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (run.compactLockFd < 0) return false;
  if (isRegularFile(run.compactLockFd)) return true;
  closeFile(run.compactLockFd);
  return false;
}

StatusCode fail(RunContext& run, StatusCode code, const char* text) {
  putComposed(run, {text, fileName(run.isiDataFileName), "\n"});
  return code;
}

bool makeLockRecord(RunContext& run) {
  run.dataFileLock = new (std::nothrow) DataFileLock;
  if (run.dataFileLock == nullptr) return false;
  run.dataFileLock->fd = run.compactLockFd;
  run.dataFileLock->dataFileLength = fileSize(run.compactLockFd).value_or(0);
  return true;
}

StatusCode lockExclusive(RunContext& run, std::uint32_t recordCount) {
  constexpr StatusCode failed = status::exclusiveCompactFailed;
  if (!openDataFile(run)) return fail(run, failed, "Unable to open ISI data file in exclusive mode: ");
  if (!makeLockRecord(run)) return status::handleNotAllocated;
  if (takeAccessLock(*run.dataFileLock, F_WRLCK) != status::success) {
    return fail(run, failed, "Unable to exclusive lock for ISI data file: ");
  }
  if (run.dataFileLock->dataFileLength == 0 && recordCount != 0) {
    return fail(run, failed, "Unexpected file size truncated for ISI data file: ");
  }
  return status::success;
}

StatusCode lockShared(RunContext& run) {
  constexpr StatusCode failed = status::sharedCompactFailed;
  if (!openDataFile(run)) return fail(run, failed, "Unable to open ISI data file: ");
  if (!makeLockRecord(run)) return status::handleNotAllocated;
  if (takeAccessLock(*run.dataFileLock, F_RDLCK) != status::success) {
    return fail(run, failed, "Unable to set share lock for ISI data file: ");
  }
  if (takeUpdateLock(*run.dataFileLock, run.inPlace) != status::success) {
    return fail(run, failed, "Unable to lock ISI data file: ");
  }
  return status::success;
}

}  // namespace

StatusCode lockDataFile(RunContext& run, std::uint32_t recordCount) {
  return run.compactLocking ? lockShared(run) : lockExclusive(run, recordCount);
}

StatusCode lockForReading(DataFileLock& lock) {
  const StatusCode status = takeAccessLock(lock, F_RDLCK);
  return status == status::success ? takeUpdateLock(lock, false) : status;
}

StatusCode ReleaseCompactLock(DataFileLock& lock) {
  if (lock.fd < 0) return noDataFile;
  if (!lock.updateLockHeld) return status::success;
  if (!requestLock(lock.fd, F_SETLK, F_UNLCK, updateOffset, updateLength)) return releaseRefused;
  lock.updateLockHeld = false;
  return status::success;
}

}  // namespace tarnvale
