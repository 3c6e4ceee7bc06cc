#include "isi/data_file_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr off_t accessOffset = 0x7FFFFFFFFFFFFFFF;
constexpr off_t accessLength = 1;
constexpr off_t updateOffset = 0x7FFFFFFFFFFFFFFD;
constexpr off_t updateLength = 2;
constexpr useconds_t pauseMicroseconds = 100;

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
bool takeAccessLock(int fd, short type) {
  return requestLock(fd, F_SETLK, type, accessOffset, accessLength) || errno == EINVAL;
}

// Waits for the update bytes. Only a lock that another process holds is worth waiting for.
bool takeUpdateLock(int fd, short type) {
  while (!requestLock(fd, F_SETLKW, type, updateOffset, updateLength)) {
    if (errno != EINTR && errno != EAGAIN && errno != EACCES) return false;
    ::usleep(pauseMicroseconds);
  }
  return true;
}

bool openLockedFile(DataFileLock& lock) {
  lock.fd = ::open(lock.name.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (lock.fd >= 0 && !isRegularFile(lock.fd)) closeFile(lock.fd);
  return lock.fd >= 0;
}

}  // namespace

LockResult lockExclusive(DataFileLock& lock, std::uint32_t recordCount) {
  if (!openLockedFile(lock)) return LockResult::notOpened;
  if (!takeAccessLock(lock.fd, F_WRLCK)) return LockResult::accessRefused;
  const bool empty = fileSize(lock.fd).value_or(0) == 0;
  return empty && recordCount != 0 ? LockResult::dataFileTruncated : LockResult::granted;
}

LockResult lockShared(DataFileLock& lock, bool inPlace) {
  if (!openLockedFile(lock)) return LockResult::notOpened;
  if (!takeAccessLock(lock.fd, F_RDLCK)) return LockResult::accessRefused;
  lock.updateLockHeld = takeUpdateLock(lock.fd, inPlace ? F_WRLCK : F_RDLCK);
  return lock.updateLockHeld ? LockResult::granted : LockResult::updateRefused;
}

LockResult lockForReading(int fd) {
  if (!takeAccessLock(fd, F_RDLCK)) return LockResult::accessRefused;
  return takeUpdateLock(fd, F_RDLCK) ? LockResult::granted : LockResult::updateRefused;
}

bool releaseCompactLock(DataFileLock& lock) {
  if (!lock.updateLockHeld) return true;
  lock.updateLockHeld = !requestLock(lock.fd, F_SETLK, F_UNLCK, updateOffset, updateLength);
  return !lock.updateLockHeld;
}

void closeDataFileLock(DataFileLock& lock) { closeFile(lock.fd); }

}  // namespace tarnvale
