#include "data/block_reader.h"

#include <algorithm>
#include <cstring>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

// Bytes of the block among those read, and how many of the file's bytes were left out on purpose.
struct BlockLength {
  std::int64_t length;
  std::uint64_t adjustment;
};

BlockLength blockLength(const BlockReader& reader, const std::uint8_t* block, ssize_t bytesRead) {
  const std::int64_t length = std::min<std::int64_t>(bytesRead, inputBlockSize + 1);
  const bool full = length == inputBlockSize + 1;
  if (reader.binary) return {full ? length - 1 : length, 0};
  if (full || (length > 0 && block[length - 1] == ctrlZ)) return {length - 1, 1};
  return {length, 0};
}

// True when the block reaches the end of the file.
bool reachesEnd(const BlockReader& reader, const BlockLength& block) {
  const auto size = fileSize(reader.fd);
  if (!size || block.length < 0) return false;
  const std::uint64_t remaining = *size - reader.position - block.adjustment;
  return static_cast<std::uint32_t>(remaining) == static_cast<std::uint32_t>(block.length);
}

}  // namespace

BlockResult fillInputBuffer(BlockReader& reader, Messages& messages) {
  std::uint8_t* const block = reader.buffer + inputCarrySize;
  reader.cursor = block;
  for (int retries = maxShortReads;;) {
    const ssize_t bytesRead = readAt(reader.fd, block, inputBlockSize + readAheadSize, reader.position);
    const BlockLength found = blockLength(reader, block, bytesRead);
    if (found.length == inputBlockSize || (--retries >= 0 && reachesEnd(reader, found))) {
      reader.position += static_cast<std::uint64_t>(found.length);
      reader.blockEnd = block + found.length;
      reader.readAheadEnd = block + bytesRead;
      return found.length > 0 ? BlockResult::loaded : BlockResult::exhausted;
    }
    if (retries < 0) {
      if (messages.debugMode) putMessage(messages, "\nfillInputBuffer(1): Invalid number of bytes read!\n");
      return BlockResult::readFailed;
    }
    if (messages.debugMode) {
      putFormatted(messages, "\nfillInputBuffer(2):\n Retry:%d  At location:0x%.8lX  Bytes read was:%d Should be:%d\n",
                   retries, static_cast<unsigned long>(static_cast<std::uint32_t>(reader.position)),
                   static_cast<int>(found.length), static_cast<int>(inputBlockSize));
    }
  }
}

BlockResult extendInputBlock(BlockReader& reader, const std::uint8_t*& from, Messages& messages) {
  const auto length = static_cast<std::size_t>(reader.blockEnd - from);
  std::uint8_t* const moved = reader.buffer + inputCarrySize - length;
  std::memmove(moved, from, length);
  from = moved;
  return fillInputBuffer(reader, messages);
}

}  // namespace tarnvale
