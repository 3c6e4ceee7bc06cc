// The locks that applications and compactions hold on a data file.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace tarnvale {

struct Lock {
  short type;
  off_t start;
  off_t length;
};
constexpr Lock readAccess = {F_RDLCK, 0x7FFFFFFFFFFFFFFF, 1};
constexpr Lock writeAccess = {F_WRLCK, 0x7FFFFFFFFFFFFFFF, 1};
constexpr Lock readUpdate = {F_RDLCK, 0x7FFFFFFFFFFFFFFD, 2};
constexpr Lock writeUpdate = {F_WRLCK, 0x7FFFFFFFFFFFFFFD, 2};

/// Calls fcntl with the lock. What a query finds: a lock of another owner that stands against it, or F_UNLCK.
inline struct flock askLock(int fd, int command, const Lock& lock) {
  struct flock asked {};
  asked.l_type = lock.type;
  asked.l_start = lock.start;
  asked.l_len = lock.length;
  ::fcntl(fd, command, &asked);
  return asked;
}

/// A lock of an open file: it stands against those of processes, of this one too, as that of another process would.
class HeldLock {
 public:
  HeldLock(const std::string& file, const Lock& lock) : fd_(::open(file.c_str(), O_RDWR | O_CLOEXEC)) {
    askLock(fd_, F_OFD_SETLK, lock);
  }
  ~HeldLock() { ::close(fd_); }
  HeldLock(HeldLock&&) = delete;
  void giveUp() const { askLock(fd_, F_OFD_SETLK, {F_UNLCK, 0, 0}); }

 private:
  int fd_;
};

}  // namespace tarnvale
