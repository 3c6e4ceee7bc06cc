// The one buffer through which all that is written one after the other goes: trains, merged trains, nodes.
//
// Its bytes belong to the file that it is aimed at; it must be empty when it is aimed at another one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/copy_short.h"
#include "common/file_blocks.h"
#include "common/tracked_files.h"
#include "format/sort_entry.h"

namespace tarnvale {

inline constexpr std::size_t outputBufferSize = 262144;

struct OutputBuffer {
  std::uint8_t* base = nullptr;   // outputBufferSize bytes; not owned
  std::uint8_t* start = nullptr;  // of what is not yet written
  std::uint8_t* next = nullptr;   // where the next byte goes
  FileRole file = FileRole::workFile1;
  int fd = -1;  // of that file; not owned
  FileBlocks blocks;

  [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(base + outputBufferSize - next); }
};

/// Aims the buffer, which must be empty, at the open file of the role, in which its bytes will go to `fileOffset`. Full
/// buffers then end at multiples of their size in the file: the system takes whole aligned pieces faster.
void aimOutput(OutputBuffer& output, FileRole file, int fd, std::size_t fileOffset);

/// Writes the bytes in the buffer to the file with one write and empties the buffer. False when not all could be
/// written; they are dropped then too.
[[nodiscard]] bool flushOutput(OutputBuffer& output);

/// putBytes for bytes that may not fit into the buffer.
[[nodiscard]] bool putThroughFullBuffer(OutputBuffer& output, const void* bytes, std::size_t size);

/// Adds the bytes to the buffer, which goes to the file whenever it is full. False when a write failed.
[[nodiscard]] inline bool putBytes(OutputBuffer& output, const void* bytes, std::size_t size) {
  if (size >= output.room()) return putThroughFullBuffer(output, bytes, size);
  std::memcpy(output.next, bytes, size);
  output.next += size;
  return true;
}

/// putBytes for the many short entries of trains.
[[nodiscard]] inline bool putEntry(OutputBuffer& output, const std::uint8_t* entry, std::size_t size) {
  if (size >= output.room()) return putThroughFullBuffer(output, entry, size);
  copyShort(output.next, entry, size);
  output.next += size;
  return true;
}

}  // namespace tarnvale
