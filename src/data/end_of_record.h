// The end-of-record convention of a text data file, found from its end.
#pragma once

#include <cstdint>
#include <span>

namespace tarnvale {

/// The bytes that end each record of a text file.
struct EndOfRecordMark {
  std::uint8_t length = 1;  // 0, 1 or 2 bytes
  std::uint8_t first = 0x0A;
  std::uint8_t second = 0;   // 0 when the mark has one byte
  std::uint8_t code = 0x80;  // recordFlags bits of the index header
};

/// What was found out about the end-of-record mark of a data file.
enum class EorConvention : std::uint8_t { cr, crLf, lf, lfCr, systemDefault, notDefined, sizeUnknown };

/// Reads the file backwards from its end, chunk by chunk through the buffer. The last mark of the file decides and goes
/// to `mark`; a file without one leaves `mark` alone: systemDefault. sizeUnknown: the file cannot be measured or read.
/// Where `lastLength` is given it becomes the length of the last record, its mark included, saturated beyond any
/// record, or stays 0 when the file has none; otherwise the search looks no further back than one chunk (the buffer
/// less one byte).
[[nodiscard]] EorConvention detectEndOfRecord(int fd, std::span<std::uint8_t> buffer, EndOfRecordMark& mark,
                                              std::uint32_t* lastLength);

/// The words of the diagnostic line.
[[nodiscard]] const char* eorConventionText(EorConvention convention);

}  // namespace tarnvale
