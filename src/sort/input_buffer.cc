#include "sort/input_buffer.h"

#include <algorithm>
#include <cstring>

#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::uint8_t ctrlZ = 0x1A;
constexpr int maxShortReads = 3;  // the fourth one fails

// Bytes of the block among those read, and how many of the file's bytes were left out on purpose.
struct BlockLength {
  std::int64_t length;
  std::uint64_t adjustment;
};

BlockLength blockLength(const RunContext& run, const std::uint8_t* block, ssize_t bytesRead) {
  const std::int64_t length = std::min<std::int64_t>(bytesRead, inputBlockSize + 1);
  const bool full = length == inputBlockSize + 1;
  if (run.binaryRecords) return {full ? length - 1 : length, 0};
  if (full || (length > 0 && block[length - 1] == ctrlZ)) return {length - 1, 1};
  return {length, 0};
}

// True when the block reaches the end of the file.
bool reachesEnd(const RunContext& run, int fd, const BlockLength& block) {
  const auto size = fileSize(fd);
  if (!size || block.length < 0) return false;
  const std::uint64_t remaining = *size - run.inputReadPosition - block.adjustment;
  return static_cast<std::uint32_t>(remaining) == static_cast<std::uint32_t>(block.length);
}

}  // namespace

std::int32_t fillInputBuffer(RunContext& run, int fd) {
  std::uint8_t* const block = run.inputBuffer + inputCarrySize;
  run.scanCursor = block;
  run.nextTab = nullptr;
  for (int retries = maxShortReads;;) {
    const ssize_t bytesRead = readAt(fd, block, inputBlockSize + readAheadSize, run.inputReadPosition);
    const BlockLength found = blockLength(run, block, bytesRead);
    if (found.length == inputBlockSize || (--retries >= 0 && reachesEnd(run, fd, found))) {
      run.inputReadPosition += static_cast<std::uint64_t>(found.length);
      run.lastBlockSize = static_cast<std::int32_t>(found.length);
      run.blockEnd = block + found.length;
      run.readAheadEnd = block + bytesRead;
      return run.lastBlockSize;
    }
    if (retries < 0) {
      if (run.debugMode) PutMessage(run, "\nfillInputBuffer(1): Invalid number of bytes read!\n");
      return status::inputReadFailed;
    }
    if (run.debugMode) {
      putFormatted(run, "\nfillInputBuffer(2):\n Retry:%d  At location:0x%.8lX  Bytes read was:%d Should be:%d\n",
                   retries, static_cast<unsigned long>(static_cast<std::uint32_t>(run.inputReadPosition)),
                   static_cast<int>(found.length), static_cast<int>(inputBlockSize));
    }
  }
}

std::int32_t extendInputBlock(RunContext& run, const std::uint8_t*& from) {
  const auto length = static_cast<std::size_t>(run.blockEnd - from);
  std::uint8_t* const moved = run.inputBuffer + inputCarrySize - length;
  std::memmove(moved, from, length);
  from = moved;
  return fillInputBuffer(run, run.inputFd);
}

}  // namespace tarnvale
