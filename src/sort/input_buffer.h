// The input buffer: the data file in blocks of 65,536 bytes.
//
// The buffer has three regions. A block lies in the middle. Behind it, up to 299 bytes of the file are read ahead, so
// that a mark of two bytes and a compared string are seen whole. In front of it is room for the beginning of a record
// that goes on in the next block: it is moved there, so that every record lies in one piece.
//
//   | carry, 65,536 bytes | block, 65,536 bytes | read-ahead, 299 bytes |
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

inline constexpr std::size_t inputCarrySize = 65536;
inline constexpr std::size_t inputBlockSize = 65536;
inline constexpr std::size_t readAheadSize = maxTermLength;
inline constexpr std::size_t inputBufferSize = inputCarrySize + inputBlockSize + readAheadSize;

/// Reads the block at `inputReadPosition` and sets the scan cursor to its first byte. The number of bytes in the block,
/// 0 when the data file is exhausted, or -4 when it cannot be read. A Ctrl-Z that ends a text file is left out.
[[nodiscard]] std::int32_t fillInputBuffer(RunContext& run, int fd);

/// Reads the next block behind the bytes from `from` to the block's end (at most 65,536), which move in front of it;
/// `from` follows them. Result as fillInputBuffer.
[[nodiscard]] std::int32_t extendInputBlock(RunContext& run, const std::uint8_t*& from);

}  // namespace tarnvale
