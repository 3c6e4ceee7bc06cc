// The data file in blocks of 65,536 bytes.
//
// The input buffer has three regions. A block lies in the middle. Behind it, up to 299 bytes of the file are read
// ahead, so that a mark of two bytes and a compared string are seen whole. In front of it is room for the beginning of
// a record that goes on in the next block: it is moved there, so that every record lies in one piece.
//
//   | carry, 65,536 bytes | block, 65,536 bytes | read-ahead, 299 bytes |
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/limits.h"
#include "common/messages.h"

namespace tarnvale {

inline constexpr std::size_t inputCarrySize = 65536;
inline constexpr std::size_t inputBlockSize = 65536;
inline constexpr std::size_t readAheadSize = maxTermLength;
inline constexpr std::size_t inputBufferSize = inputCarrySize + inputBlockSize + readAheadSize;

/// Where the reading of a data file stands.
struct BlockReader {
  int fd = -1;                                 // of the data file; not owned
  bool binary = false;                         // a Ctrl-Z at the end is data
  std::uint8_t* buffer = nullptr;              // inputBufferSize bytes; not owned
  std::uint64_t position = 0;                  // data file offset of the next block
  const std::uint8_t* cursor = nullptr;        // next byte of the block
  const std::uint8_t* blockEnd = nullptr;      // behind the last byte that counts
  const std::uint8_t* readAheadEnd = nullptr;  // behind the last byte in memory: at most 299 bytes further
};

enum class BlockResult : std::uint8_t { loaded, exhausted, readFailed };

/// Reads the next block and sets the cursor to its first byte. Exhausted: the data file has no more. A Ctrl-Z that ends
/// a text file is left out.
[[nodiscard]] BlockResult fillInputBuffer(BlockReader& reader, Messages& messages);

/// Reads the next block behind the bytes from `from` to the block's end (at most 65,536), which move in front of it;
/// `from` follows them. Result as fillInputBuffer.
[[nodiscard]] BlockResult extendInputBlock(BlockReader& reader, const std::uint8_t*& from, Messages& messages);

}  // namespace tarnvale
