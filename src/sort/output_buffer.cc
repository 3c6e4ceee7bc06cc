#include "sort/output_buffer.h"

#include "common/posix_file.h"

namespace tarnvale {

void aimOutput(OutputBuffer& output, FileRole file, int fd, std::size_t fileOffset) {
  output.start = output.base + fileOffset % outputBufferSize;
  output.next = output.start;
  output.file = file;
  output.fd = fd;
  output.blocks = {};
}

bool flushOutput(OutputBuffer& output) {
  const std::uint8_t* const start = output.start;
  const auto size = static_cast<std::size_t>(output.next - start);
  output.start = output.base;
  output.next = output.base;
  output.blocks.take(output.fd, size);
  return writeAll(output.fd, start, size);
}

bool putThroughFullBuffer(OutputBuffer& output, const void* bytes, std::size_t size) {
  const auto* source = static_cast<const std::uint8_t*>(bytes);
  while (size >= output.room()) {
    if (output.next == output.base) {  // whole buffers need no copying
      const std::size_t whole = size - size % outputBufferSize;
      output.blocks.take(output.fd, whole);
      if (!writeAll(output.fd, source, whole)) return false;
      source += whole;
      size -= whole;
      break;
    }
    const std::size_t part = output.room();
    std::memcpy(output.next, source, part);
    output.next += part;
    source += part;
    size -= part;
    if (!flushOutput(output)) return false;
  }
  std::memcpy(output.next, source, size);
  output.next += size;
  return true;
}

}  // namespace tarnvale
