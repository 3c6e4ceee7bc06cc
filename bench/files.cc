#include "files.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {

namespace {

// Writes at the file's position, as tarnvale does: ext4 is asked for the blocks of a large piece beforehand.
void writeAll(int fd, const std::uint8_t* bytes, std::size_t size) {
  struct statfs fileSystem {};
  if (size >= writerSize / 2 && ::fstatfs(fd, &fileSystem) == 0 && fileSystem.f_type == EXT4_SUPER_MAGIC)
    static_cast<void>(::fallocate(fd, FALLOC_FL_KEEP_SIZE, ::lseek(fd, 0, SEEK_CUR), static_cast<off_t>(size)));
  if (::write(fd, bytes, size) != static_cast<ssize_t>(size)) fail("cannot write");
}

}  // namespace

void fail(const std::string& what) {
  const int reason = errno;
  std::fprintf(stderr, "%s%s%s\n", what.c_str(), reason != 0 ? ": " : "", reason != 0 ? std::strerror(reason) : "");
  std::exit(1);
}

MappedFile mapFile(const std::string& name) {
  const int fd = ::open(name.c_str(), O_RDONLY);
  struct stat about {};
  if (fd < 0 || ::fstat(fd, &about) != 0) fail("cannot open " + name);
  const auto size = static_cast<std::size_t>(about.st_size);
  void* const data = size == 0 ? nullptr : ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  if (data == MAP_FAILED) fail("cannot map " + name);
  ::close(fd);
  return {static_cast<const std::uint8_t*>(data), size};
}

void* largeMemory(std::size_t size) {
  constexpr std::size_t largePage = 2097152;
  void* const memory = std::aligned_alloc(largePage, (size + largePage - 1) / largePage * largePage);
  if (memory == nullptr) fail("no memory");
  if (size > largePage) ::madvise(memory, size, MADV_HUGEPAGE);
  return memory;
}

int openFile(const std::string& name, int flags) {
  const int fd = ::open(name.c_str(), O_RDWR | flags, 0666);
  if (fd < 0) fail("cannot open " + name);
  return fd;
}

int openWorkFile() {
  const char* const folder = std::getenv("TMPDIR");
  std::string name = std::string(folder != nullptr ? folder : "/tmp") + "/roofXXXXXX";
  const int fd = ::mkstemp(name.data());
  if (fd < 0) fail("cannot create " + name);
  ::unlink(name.c_str());
  return fd;
}

std::size_t readAt(int fd, void* to, std::size_t size, std::uint64_t offset) {
  const ssize_t count = ::pread(fd, to, size, static_cast<off_t>(offset));
  if (count < 0) fail("cannot read");
  return static_cast<std::size_t>(count);
}

void Writer::putInPieces(const std::uint8_t* bytes, std::size_t size) {
  while (size > 0) {
    if (used == 0 && size >= writerSize) {  // whole buffers need no copying
      const std::size_t whole = size - size % writerSize;
      writeAll(fd, bytes, whole);
      bytes += whole;
      size -= whole;
      continue;
    }
    const std::size_t piece = std::min(size, writerSize - used);
    std::memcpy(buffer.get() + used, bytes, piece);
    used += piece;
    bytes += piece;
    size -= piece;
    if (used == writerSize) flush();
  }
}

void Writer::flush() {
  if (used != 0) writeAll(fd, buffer.get(), used);
  used = 0;
}

}  // namespace bench
