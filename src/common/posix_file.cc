#include "common/posix_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/file_name.h"
#include "common/limits.h"

namespace tarnvale {

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB need 64-bit offsets");

namespace {

// Calls `transfer(bytes done so far)` until all is done, nothing more comes, or it fails.
template <typename Transfer>
ssize_t transferAll(std::size_t size, Transfer transfer) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = transfer(done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

ssize_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
  return transferAll(size, [=](std::size_t done) {
    return ::pread(fd, static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(offset + done));
  });
}

ssize_t readNext(int fd, void* buffer, std::size_t size) {
  return transferAll(size,
                     [=](std::size_t done) { return ::read(fd, static_cast<char*>(buffer) + done, size - done); });
}

bool writeAll(int fd, const void* bytes, std::size_t size) {
  const ssize_t written = transferAll(
      size, [=](std::size_t done) { return ::write(fd, static_cast<const char*>(bytes) + done, size - done); });
  return written == static_cast<ssize_t>(size);
}

bool writeAllAt(int fd, const void* bytes, std::size_t size, std::uint64_t offset) {
  const ssize_t written = transferAll(size, [=](std::size_t done) {
    return ::pwrite(fd, static_cast<const char*>(bytes) + done, size - done, static_cast<off_t>(offset + done));
  });
  return written == static_cast<ssize_t>(size);
}

bool seekTo(int fd, std::uint64_t offset) { return ::lseek(fd, static_cast<off_t>(offset), SEEK_SET) >= 0; }

std::optional<std::uint64_t> fileSize(int fd) {
  struct stat information {};
  if (::fstat(fd, &information) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(information.st_size);
}

bool isRegularFile(int fd) {
  struct stat information {};
  return ::fstat(fd, &information) == 0 && S_ISREG(information.st_mode);
}

bool isSameFile(int fd1, int fd2) {
  struct stat first {};
  struct stat second {};
  return ::fstat(fd1, &first) == 0 && ::fstat(fd2, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

int createFile(const char* name, std::initializer_list<int> keep) {
  const int created = ::open(name, O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
  if (created >= 0) return created;
  int existing = ::open(name, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (existing < 0) return -1;
  const bool kept =
      !isRegularFile(existing) || std::ranges::any_of(keep, [existing](int fd) { return isSameFile(existing, fd); });
  if (!kept && ::ftruncate(existing, 0) == 0) return existing;
  closeFile(existing);
  return -1;
}

bool closeFile(int& fd) {
  if (fd < 0) return true;
  const int closing = fd;
  fd = -1;
  return ::close(closing) == 0 || errno == EINTR;  // the descriptor is gone after EINTR too
}

bool acceptsOutput(int fd, int patienceMilliseconds) {
  struct pollfd stream {};
  stream.fd = fd;
  stream.events = POLLOUT;
  return fd >= 0 && ::poll(&stream, 1, patienceMilliseconds) == 1;
}

bool syncDirectoryOf(std::string_view name) {
  const std::size_t slash = name.rfind('/');
  FileName directory;
  const bool fits = directory.assign(slash == std::string_view::npos ? "." : name.substr(0, slash + 1));
  if (!fits) return false;
  int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0;
  closeFile(fd);
  return synced;
}

}  // namespace tarnvale
