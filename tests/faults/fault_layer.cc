// A library to be preloaded: it stands between a program and its calls for files and memory, counts and logs them, and
// lets some of them fail as the environment says. Writes to the standard streams pass uncounted.
#include "faults/fault_layer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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

bool awake = false;  // not before the program, nor behind it: calls pass uncounted there

struct Fault {
  char kind[16] = {};
  int code = 0;
  char scope[16] = {};
  int at = 0;
  char first[16] = {};  // the name of the call struck first
};

struct Layer {
  Fault faults[2];
  int faultCount = 0;
  int logFd = -1;
  int calls = 0;
  char names[256][128] = {};  // of the open descriptors

  Layer() {
    const char* text = std::getenv("TARNVALE_FAULTS");
    for (Fault& fault : faults) {
      if (text == nullptr) break;
      faultCount += std::sscanf(text, "%15s %d %15s %d", fault.kind, &fault.code, fault.scope, &fault.at) == 4 ? 1 : 0;
      text = std::strchr(text, ';');
      if (text != nullptr) ++text;
    }
    const char* const log = std::getenv("TARNVALE_FAULT_LOG");
    if (log == nullptr) return;
    const auto low = ::syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    logFd = static_cast<int>(::syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, 200));  // the program's numbers stay the same
    ::syscall(SYS_close, low);
  }
};

Layer& layer() {
  static Layer instance;
  return instance;
}
void fallAsleep() { awake = false; }
[[gnu::constructor]] void start() {
  layer();
  awake = true;
}

// What a call does, whether it is given a name, a descriptor or an offset: pread reads, ftruncate truncates.
std::string_view groupOf(std::string_view name) { return name.substr(name[0] == 'p' || name[0] == 'f' ? 1 : 0); }

bool strikes(Fault& fault, int number, const char* name) {
  if (number == fault.at) std::strncpy(fault.first, name, sizeof fault.first - 1);
  if (number <= fault.at) return number == fault.at;
  const std::string_view scope(fault.scope);
  const bool same = groupOf(fault.first) == groupOf(name);
  return scope == "all" || (same && (scope == "same" || (scope == "thrice" && number < fault.at + 3)));
}

// The call as it was asked for.
CallRecord about(const char* name, const char* file, int fd = -1, std::size_t size = 0, off_t offset = 0) {
  CallRecord record;
  std::strncpy(record.name, name, sizeof record.name - 1);
  if (file == nullptr && fd >= 0 && fd < 256) file = layer().names[fd];
  if (file != nullptr) std::strncpy(record.file, file, sizeof record.file - 1);
  record.fd = fd;
  record.size = static_cast<std::int64_t>(size);
  record.offset = offset;
  return record;
}

void finishRecord(CallRecord& record, std::int64_t result, const char* file) {
  record.result = result;
  record.error = result == -1 ? errno : 0;
  if (groupOf(record.name) == "write" && result > 0) record.payload = static_cast<std::uint64_t>(result);
  if (file == nullptr) return;  // no open
  record.fd = static_cast<int>(result);
  std::strncpy(record.file, file, sizeof record.file - 1);  // mkstemp has completed it
  if (result >= 0 && result < 256) std::memcpy(layer().names[result], record.file, sizeof record.file);
}

// Makes the call by `real`, with a size where it is a transfer. An open gives the name of its file.
template <typename Real>
auto pass(CallRecord record, const void* bytes, const char* opened, Real real) {
  if (!awake) return real(static_cast<std::size_t>(record.size));
  Layer& state = layer();
  const int number = ++state.calls;
  // Not earlier: a program that counts its branches would write them before this.
  if (number == 1) std::atexit(fallAsleep);
  const std::string_view group = groupOf(record.name);
  const bool transfer = group == "read" || group == "write";
  auto size = static_cast<std::size_t>(record.size);
  decltype(real(size)) result{};
  int error = 0;
  int signalAfter = 0;
  bool skipped = false;
  bool logged = state.logFd >= 0;
  for (Fault* fault = state.faults; fault != state.faults + state.faultCount; ++fault) {
    if (!strikes(*fault, number, record.name)) continue;
    const std::string_view kind(fault->kind);
    if (kind == "error") error = fault->code;
    if (kind == "short" && transfer) size = std::max(std::min<std::size_t>(size, 1), size / 2);
    if (kind == "before") std::raise(fault->code);
    if (kind == "after") signalAfter = fault->code;
    if (kind == "unsynced" && group == "sync") logged = false;
    skipped = skipped || (kind == "zero" && transfer) || !logged;
  }
  record.faulted = error != 0 || skipped || static_cast<std::int64_t>(size) != record.size ? 1 : 0;
  if (error != 0 ? group == "close" : !skipped) result = real(size);
  if (error != 0) {
    result = decltype(result)(-1);
    errno = error;
  }
  const int savedErrno = errno;
  finishRecord(record, std::int64_t(result), opened);
  if (logged) ::syscall(SYS_write, state.logFd, &record, sizeof record);
  if (logged && record.payload != 0) ::syscall(SYS_write, state.logFd, bytes, record.payload);
  if (signalAfter != 0) std::raise(signalAfter);
  errno = savedErrno;
  return result;
}

template <typename Real>
auto pass(const CallRecord& record, Real real) {
  return pass(record, nullptr, nullptr, real);
}

// The call gives memory, or null.
template <typename Real>
void* passMemory(const char* name, std::size_t size, Real real) {
  if (!awake) return real();
  const auto address = [&](auto) { return reinterpret_cast<std::intptr_t>(real()); };
  const std::intptr_t result = pass(about(name, nullptr, -1, size), address);
  return result == -1 ? nullptr : reinterpret_cast<void*>(result);
}

long positionOf(int fd) { return ::syscall(SYS_lseek, fd, 0, SEEK_CUR); }

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

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
  return passMemory("calloc", count * size, [&] { return __libc_calloc(count, size); });
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return passMemory("aligned_alloc", size, [&] { return __libc_memalign(alignment, size); });
}

int open(const char* file, int flags, ...) {
  std::va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  CallRecord record = about("open", file);
  record.flags = flags;
  return pass(record, nullptr, file, [&](auto) { return int(::syscall(SYS_openat, AT_FDCWD, file, flags, mode)); });
}
int open64(const char* file, int flags, ...) __attribute__((alias("open")));

int mkstemp(char* file) {
  static const auto real = next<int(char*)>("mkstemp");
  return pass(about("mkstemp", file), nullptr, file, [&](auto) { return real(file); });
}

int close(int fd) {
  return pass(about("close", nullptr, fd), [&](auto) { return int(::syscall(SYS_close, fd)); });
}

ssize_t read(int fd, void* buffer, std::size_t size) {
  const CallRecord record = about("read", nullptr, fd, size, positionOf(fd));
  return pass(record, [&](auto part) { return ::syscall(SYS_read, fd, buffer, part); });
}

ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) {
  const CallRecord record = about("pread", nullptr, fd, size, offset);
  return pass(record, [&](auto part) { return ::syscall(SYS_pread64, fd, buffer, part, offset); });
}

ssize_t write(int fd, const void* bytes, std::size_t size) {
  const auto real = [&](auto part) { return ::syscall(SYS_write, fd, bytes, part); };
  if (fd <= STDERR_FILENO) return real(size);
  return pass(about("write", nullptr, fd, size, positionOf(fd)), bytes, nullptr, real);
}

ssize_t pwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  const auto real = [&](auto part) { return ::syscall(SYS_pwrite64, fd, bytes, part, offset); };
  return pass(about("pwrite", nullptr, fd, size, offset), bytes, nullptr, real);
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
  return pass(about("lseek", nullptr, fd), [&](auto) { return ::syscall(SYS_lseek, fd, offset, whence); });
}

int ftruncate(int fd, off_t size) noexcept {
  const CallRecord record = about("ftruncate", nullptr, fd, std::size_t(size));
  return pass(record, [&](auto) { return int(::syscall(SYS_ftruncate, fd, size)); });
}

int truncate(const char* file, off_t size) noexcept {
  const CallRecord record = about("truncate", file, -1, std::size_t(size));
  return pass(record, [&](auto) { return int(::syscall(SYS_truncate, file, size)); });
}

int fsync(int fd) {
  return pass(about("fsync", nullptr, fd), [&](auto) { return int(::syscall(SYS_fsync, fd)); });
}

int fdatasync(int fd) { return fsync(fd); }

int fcntl(int fd, int command, ...) {
  std::va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return pass(about("fcntl", nullptr, fd), [&](auto) { return int(::syscall(SYS_fcntl, fd, command, argument)); });
}

int unlink(const char* file) noexcept {
  return pass(about("unlink", file), [&](auto) { return int(::syscall(SYS_unlink, file)); });
}

int rename(const char* from, const char* to) noexcept {
  CallRecord record = about("rename", from);
  record.payload = std::strlen(to);
  return pass(record, to, nullptr, [&](auto) { return int(::syscall(SYS_rename, from, to)); });
}

int fstat(int fd, struct stat* information) noexcept {
  static const auto real = next<int(int, struct stat*)>("fstat");
  return pass(about("fstat", nullptr, fd), [&](auto) { return real(fd, information); });
}

int stat(const char* file, struct stat* information) noexcept {
  static const auto real = next<int(const char*, struct stat*)>("stat");
  return pass(about("stat", file), [&](auto) { return real(file, information); });
}

void* sbrk(std::intptr_t size) noexcept {
  static const auto real = next<void*(std::intptr_t)>("sbrk");
  const auto result = pass(about("sbrk", nullptr), [&](auto) { return reinterpret_cast<std::intptr_t>(real(size)); });
  return reinterpret_cast<void*>(result);
}
}
