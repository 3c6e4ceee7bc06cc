// A library to be preloaded: it stands between a program and its calls for files and memory, counts and logs them, and
// lets some of them fail as the environment says. Writes to the standard streams pass uncounted.
#include "faults/fault_layer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

using tarnvale::CallRecord;

struct Fault {
  char kind[16];
  int code;
  char scope[16];
  int at;
  char first[16];  // the name of the call struck first
};

bool awake = false;  // not before the program, nor behind it: calls pass uncounted there
Fault faults[2];     // one that is not asked for has no scope, and strikes never
int logFd = -1;
int calls = 0;
char names[256][128];  // of the open descriptors

void fallAsleep() { awake = false; }

[[gnu::constructor]] void start() {
  constexpr unsigned patienceSeconds = 20;
  ::alarm(patienceSeconds);  // a run that hangs is ended
  const char* text = std::getenv("TARNVALE_FAULTS");
  int length = 0;
  for (Fault& fault : faults) {
    if (std::sscanf(text, "%15s %d %15s %d %n", fault.kind, &fault.code, fault.scope, &fault.at, &length) != 4) break;
    text += length;
  }
  const char* const log = std::getenv("TARNVALE_FAULT_LOG");
  const auto low = ::syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  logFd = static_cast<int>(::syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, 200));  // the program's numbers stay the same
  ::syscall(SYS_close, low);
  awake = true;
}

// What a call does, whether it is given a name, a descriptor or an offset: pread reads, ftruncate truncates.
std::string_view groupOf(std::string_view name) {
  return name.substr(name.starts_with('p') || name.starts_with('f') ? 1 : 0);
}

bool strikes(Fault& fault, int number, const char* name) {
  if (number == fault.at) std::strncpy(fault.first, name, sizeof fault.first - 1);
  if (number <= fault.at) return number == fault.at;
  const std::string_view scope(fault.scope);
  const bool same = groupOf(fault.first) == groupOf(name);
  return scope == "all" || (same && (scope == "same" || (scope == "thrice" && number < fault.at + 3)));
}

// The call as it was asked for.
CallRecord about(const char* name, const char* file, std::int64_t size = 0, off_t offset = 0) {
  CallRecord record;
  std::strncpy(record.name, name, sizeof record.name - 1);
  std::strncpy(record.file, file, sizeof record.file - 1);
  record.size = size;
  record.offset = offset;
  return record;
}
CallRecord about(const char* name, int fd, std::int64_t size = 0, off_t offset = 0) {
  return about(name, fd >= 0 && fd < 256 ? names[fd] : "", size, offset);
}

// Makes the call by `real`, which is given the size of a transfer. A transfer has a buffer, an open the file's name.
template <typename Real>
auto pass(CallRecord record, const void* buffer, const char* opened, Real real) {
  auto size = static_cast<std::size_t>(record.size);
  if (!awake) return real(size);
  // Not earlier: a program that counts its branches would write them before this.
  if (calls == 0) std::atexit(fallAsleep);
  ++calls;
  const std::string_view group = groupOf(record.name);
  const bool transfer = group == "read" || group == "write";
  decltype(real(size)) result{};
  int error = 0;
  int signalAfter = 0;
  bool skipped = false;
  bool logged = true;
  for (Fault& fault : faults) {
    if (!strikes(fault, calls, record.name)) continue;
    const std::string_view kind(fault.kind);
    if (kind == "error") error = fault.code;
    if (kind == "short" && transfer) size = std::max(std::min<std::size_t>(size, 1), size / 2);
    if (kind == "before") std::raise(fault.code);
    if (kind == "after") signalAfter = fault.code;
    if (kind == "unsynced" && group == "sync") logged = false;
    skipped = skipped || (kind == "zero" && transfer) || !logged;
  }
  if (error != 0 ? group == "close" : !skipped) result = real(size);
  if (error != 0) {
    result = decltype(result)(-1);
    errno = error;
  }
  const int savedErrno = errno;
  record.result = std::int64_t(result);
  record.error = record.result == -1 ? savedErrno : 0;
  if (opened != nullptr) std::strncpy(record.file, opened, sizeof record.file - 1);  // mkstemp has completed it
  if (opened != nullptr && result >= 0 && record.result < 256)
    std::memcpy(names[record.result], record.file, sizeof record.file);
  const bool kept = group == "write" && record.result > 0 && std::strchr(record.file, '/') == nullptr;
  if (kept) record.payload = static_cast<std::uint64_t>(record.result);
  if (logged) ::syscall(SYS_write, logFd, &record, sizeof record);
  if (kept) ::syscall(SYS_write, logFd, buffer, record.payload);
  if (signalAfter != 0) std::raise(signalAfter);
  errno = savedErrno;
  return result;
}

template <typename Buffer, typename... Offset>
ssize_t passTransfer(const CallRecord& record, long call, int fd, Buffer buffer, Offset... offset) {
  return pass(record, buffer, nullptr, [&](auto size) { return ::syscall(call, fd, buffer, size, offset...); });
}
template <typename Result = int, typename... Arguments>
Result passOn(const CallRecord& record, long call, Arguments... arguments) {
  return pass(record, nullptr, nullptr, [&](auto) { return static_cast<Result>(::syscall(call, arguments...)); });
}

// The call gives memory, or `refusal`.
template <typename Real>
void* passMemory(const char* name, void* refusal, Real real) {
  if (calls == 0) return real();  // for the C library at the start of a program: it may hold a lock that atexit takes
  const auto result = pass(about(name, ""), nullptr, nullptr, [&](auto) { return std::intptr_t(real()); });
  return result == -1 ? refusal : reinterpret_cast<void*>(result);
}

off_t positionOf(int fd) { return ::syscall(SYS_lseek, fd, 0, SEEK_CUR); }

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the C library gives them
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

// The counters of a program that is built to count its branches are else lost here.
void _exit(int status) {
  fallAsleep();
  const auto writeCounters = reinterpret_cast<void (*)()>(::dlsym(RTLD_DEFAULT, "__gcov_dump"));
  if (writeCounters != nullptr) writeCounters();
  for (;;) ::syscall(SYS_exit_group, status);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  return passMemory("calloc", nullptr, [&] { return __libc_calloc(count, size); });
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return passMemory("aligned_alloc", nullptr, [&] { return __libc_memalign(alignment, size); });
}

void* sbrk(std::intptr_t size) noexcept {
  static const auto real = reinterpret_cast<void* (*)(std::intptr_t)>(::dlsym(RTLD_NEXT, "sbrk"));
  return passMemory("sbrk", reinterpret_cast<void*>(-1), [&] { return real(size); });
}

int open(const char* file, int flags, ...) {
  std::va_list rest;
  va_start(rest, flags);
  const mode_t mode = va_arg(rest, mode_t);  // whether it is used or not
  va_end(rest);
  CallRecord record = about("open", file);
  record.flags = flags;
  return pass(record, nullptr, file, [&](auto) { return int(::syscall(SYS_openat, AT_FDCWD, file, flags, mode)); });
}

int mkstemp(char* file) {
  static const auto real = reinterpret_cast<int (*)(char*)>(::dlsym(RTLD_NEXT, "mkstemp"));
  return pass(about("mkstemp", file), nullptr, file, [&](auto) { return real(file); });
}

ssize_t read(int fd, void* buffer, std::size_t size) {
  return passTransfer(about("read", fd, size, positionOf(fd)), SYS_read, fd, buffer);
}
ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return passTransfer(about("pread", fd, size, offset), SYS_pread64, fd, buffer, offset);
}
ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (fd <= STDERR_FILENO) return ::syscall(SYS_write, fd, bytes, size);
  return passTransfer(about("write", fd, size, positionOf(fd)), SYS_write, fd, bytes);
}
ssize_t pwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  return passTransfer(about("pwrite", fd, size, offset), SYS_pwrite64, fd, bytes, offset);
}

int close(int fd) { return passOn(about("close", fd), SYS_close, fd); }
int unlink(const char* file) noexcept { return passOn(about("unlink", file), SYS_unlinkat, AT_FDCWD, file, 0); }
off_t lseek(int fd, off_t offset, int whence) noexcept {
  return passOn<off_t>(about("lseek", fd), SYS_lseek, fd, offset, whence);
}
int ftruncate(int fd, off_t size) noexcept { return passOn(about("ftruncate", fd, size), SYS_ftruncate, fd, size); }
// Always ext4, so that what is done there alone is tested wherever the tests are.
int fstatfs(int fd, struct statfs* found) noexcept {
  const int result = passOn(about("fstatfs", fd), SYS_fstatfs, fd, found);
  if (result == 0) found->f_type = EXT4_SUPER_MAGIC;
  return result;
}
int fallocate(int fd, int mode, off_t offset, off_t size) {
  return passOn(about("fallocate", fd, size, offset), SYS_fallocate, fd, mode, offset, size);
}
int truncate(const char* file, off_t size) noexcept {
  return passOn(about("truncate", file, size), SYS_truncate, file, size);
}
// Only the descriptor is looked at: the power does not really fail, and waiting for the disk takes long.
int fsync(int fd) { return passOn(about("fsync", fd), SYS_fcntl, fd, F_GETFD) < 0 ? -1 : 0; }

int fcntl(int fd, int command, ...) {
  std::va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return passOn(about("fcntl", fd), SYS_fcntl, fd, command, argument);
}

int fstat(int fd, struct stat* found) noexcept { return passOn(about("fstat", fd), SYS_fstat, fd, found); }
int stat(const char* file, struct stat* found) noexcept {
  return passOn(about("stat", file), SYS_newfstatat, AT_FDCWD, file, found, 0);
}
}
