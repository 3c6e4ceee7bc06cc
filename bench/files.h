// Files for the helpers of the benchmark: mapped for reading, buffered for writing. A failure ends the helper, since
// nothing it could go on with is worth measuring.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

inline constexpr std::size_t writerSize = 262144;  // what tarnvale writes at once

/// Says what went wrong, with the system's reason when there is one, and ends with exit status 1.
[[noreturn]] void fail(const std::string& what);

/// A whole file as memory. The mapping stays until the process ends.
struct MappedFile {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
};

[[nodiscard]] MappedFile mapFile(const std::string& name);

/// Memory in pages as large as there are; it stays until the process ends.
[[nodiscard]] void* largeMemory(std::size_t size);

/// Opens for reading and writing; `flags` are added, such as O_CREAT.
[[nodiscard]] int openFile(const std::string& name, int flags);

/// A file without a name in the folder that TMPDIR names, gone when the process ends.
[[nodiscard]] int openWorkFile();

/// Reads up to `size` bytes from `offset` on; fewer only at the end of the file.
std::size_t readAt(int fd, void* to, std::size_t size, std::uint64_t offset);

/// Collects what is put and writes it in large pieces at the file's position.
struct Writer {
  int fd = -1;
  std::size_t used = 0;
  std::unique_ptr<std::uint8_t[]> buffer = std::make_unique_for_overwrite<std::uint8_t[]>(writerSize);

  void put(const void* bytes, std::size_t size) {
    if (size < writerSize - used) {
      __builtin_memcpy(buffer.get() + used, bytes, size);
      used += size;
    } else {
      putInPieces(static_cast<const std::uint8_t*>(bytes), size);
    }
  }
  void flush();

 private:
  void putInPieces(const std::uint8_t* bytes, std::size_t size);
};

}  // namespace bench
