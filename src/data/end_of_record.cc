#include "data/end_of_record.h"

#include <algorithm>
#include <array>
#include <optional>

#include "common/limits.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::uint8_t carriageReturn = 0x0D;
constexpr std::uint8_t lineFeed = 0x0A;

struct ConventionRow {
  EndOfRecordMark mark;
  const char* text;
};
// In the order of EorConvention; the last two rows only have a text.
constexpr std::array<ConventionRow, 6> conventionRows = {{
    {{1, carriageReturn, 0, 0x00}, "CR.\n\r"},
    {{2, carriageReturn, lineFeed, 0x40}, "CRLF.\n\r"},
    {{1, lineFeed, 0, 0x80}, "LF.\n\r"},
    {{2, lineFeed, carriageReturn, 0xC0}, "LFCR.\n\r"},
    {{}, "OS DEFAULT (LF)'.\n\r"},
    {{}, "not defined.\n\r"},
}};

// Gives the bytes of a file from its end towards its start, a chunk in memory at a time.
struct BackwardReader {
  int fd;
  std::span<std::uint8_t> buffer;
  std::uint64_t chunkStart = 0;  // file offset of the first byte in memory
  std::uint64_t chunkEnd = 0;    // behind the last one
  bool failed = false;

  // The byte at the offset; offsets are asked for in descending order.
  std::uint8_t at(std::uint64_t offset) {
    if (offset < chunkStart || offset >= chunkEnd) load(offset);
    return failed ? 0 : buffer[offset - chunkStart];
  }

 private:
  void load(std::uint64_t offset) {
    chunkEnd = offset + 1;
    chunkStart = chunkEnd - std::min<std::uint64_t>(chunkEnd, buffer.size());
    const std::size_t size = chunkEnd - chunkStart;
    failed = readAt(fd, buffer.data(), size, chunkStart) != static_cast<ssize_t>(size);
  }
};

struct FoundMark {
  EorConvention convention;
  std::uint64_t contentEnd;  // offset behind the last byte before the mark
};

// The last mark that ends at or behind `limit`.
std::optional<FoundMark> findLastMark(BackwardReader& reader, std::uint64_t size, std::uint64_t limit) {
  for (std::uint64_t offset = size; offset-- > limit && !reader.failed;) {
    const std::uint8_t byte = reader.at(offset);
    if (byte != lineFeed && byte != carriageReturn) continue;
    const std::uint8_t other = byte == lineFeed ? carriageReturn : lineFeed;
    const bool two = offset > 0 && reader.at(offset - 1) == other;
    if (byte == lineFeed) return FoundMark{two ? EorConvention::crLf : EorConvention::lf, offset - (two ? 1 : 0)};
    return FoundMark{two ? EorConvention::lfCr : EorConvention::cr, offset - (two ? 1 : 0)};
  }
  return std::nullopt;
}

// Bytes of the record that ends at `contentEnd`: back to the mark of the record before, a NUL, or the file's start.
std::uint64_t lastRecordLength(const EndOfRecordMark& mark, BackwardReader& reader, std::uint64_t contentEnd) {
  const std::uint8_t lastOfMark = mark.second != 0 ? mark.second : mark.first;
  std::uint64_t start = contentEnd;
  while (start > 0 && !reader.failed) {
    const std::uint8_t byte = reader.at(start - 1);
    if (byte == lastOfMark || byte == 0) break;
    --start;
  }
  return contentEnd - start;
}

}  // namespace

EorConvention detectEndOfRecord(int fd, std::span<std::uint8_t> buffer, EndOfRecordMark& mark,
                                std::uint32_t* lastLength) {
  const auto size = fileSize(fd);
  if (!size) return EorConvention::sizeUnknown;
  BackwardReader reader{fd, buffer};
  const std::uint64_t chunk = buffer.size() - 1;
  const std::uint64_t limit = lastLength != nullptr || *size < chunk ? 0 : *size - chunk;

  const auto found = findLastMark(reader, *size, limit);
  if (found) mark = conventionRows[static_cast<std::size_t>(found->convention)].mark;
  EorConvention result = found ? found->convention : EorConvention::systemDefault;
  if (found && lastLength != nullptr) {
    const std::uint64_t length = lastRecordLength(mark, reader, found->contentEnd);
    if (length == 0 && found->contentEnd == 0) {
      result = EorConvention::systemDefault;
    } else {
      *lastLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, beyondAnyRecord)) + mark.length;
    }
  }
  return reader.failed ? EorConvention::sizeUnknown : result;
}

const char* eorConventionText(EorConvention convention) {
  return conventionRows[static_cast<std::size_t>(convention)].text;
}

}  // namespace tarnvale
