#include "sort/end_of_record.h"

#include <algorithm>
#include <array>
#include <optional>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::uint8_t carriageReturn = 0x0D;
constexpr std::uint8_t lineFeed = 0x0A;

struct ConventionRow {
  std::uint8_t length;
  std::uint8_t char1;
  std::uint8_t char2;
  std::uint8_t code;  // recordFlags bits of the index header
  const char* text;
};
// In the order of EorConvention; the last three rows only have a text.
constexpr std::array<ConventionRow, 6> conventionRows = {{
    {1, carriageReturn, 0, 0x00, "CR.\n\r"},
    {2, carriageReturn, lineFeed, 0x40, "CRLF.\n\r"},
    {1, lineFeed, 0, 0x80, "LF.\n\r"},
    {2, lineFeed, carriageReturn, 0xC0, "LFCR.\n\r"},
    {1, lineFeed, 0, 0x80, "OS DEFAULT (LF)'.\n\r"},
    {0, 0, 0, 0, "not defined.\n\r"},
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

void setConvention(RunContext& run, EorConvention convention) {
  const ConventionRow& row = conventionRows[static_cast<std::size_t>(convention)];
  run.eorLength = row.length;
  run.eorChar1 = row.char1;
  run.eorChar2 = row.char2;
  run.eorCode = row.code;
}

// Bytes of the record that ends at `contentEnd`: back to the mark of the record before, a NUL, or the file's start.
std::uint64_t lastRecordLength(const RunContext& run, BackwardReader& reader, std::uint64_t contentEnd) {
  const std::uint8_t lastOfMark = run.eorChar2 != 0 ? run.eorChar2 : run.eorChar1;
  std::uint64_t start = contentEnd;
  while (start > 0 && !reader.failed) {
    const std::uint8_t byte = reader.at(start - 1);
    if (byte == lastOfMark || byte == 0) break;
    --start;
  }
  return contentEnd - start;
}

}  // namespace

EorConvention DetectEndOfRecord(RunContext& run, int fd, std::span<std::uint8_t> buffer) {
  const auto size = fileSize(fd);
  if (!size) return EorConvention::sizeUnknown;
  BackwardReader reader{fd, buffer};
  const bool lengthWanted = !run.variableLengthAllowed && run.recordLengthSpec == 0;
  const std::uint64_t chunk = buffer.size() - 1;
  const std::uint64_t limit = lengthWanted || *size < chunk ? 0 : *size - chunk;

  const auto mark = findLastMark(reader, *size, limit);
  if (mark) setConvention(run, mark->convention);
  EorConvention result = mark ? mark->convention : EorConvention::systemDefault;
  if (mark && lengthWanted) {
    const std::uint64_t length = lastRecordLength(run, reader, mark->contentEnd);
    const bool noContent = length == 0 && mark->contentEnd == 0;
    if (noContent) result = EorConvention::systemDefault;
    // A length beyond any record is refused by the caller: saturated, it stays so.
    constexpr std::uint64_t beyondAnyRecord = 0x10000;
    if (!noContent)
      run.foundRecordLength = static_cast<std::int32_t>(std::min(length, beyondAnyRecord) + run.eorLength);
  }
  return reader.failed ? EorConvention::sizeUnknown : result;
}

const char* eorConventionText(EorConvention convention) {
  return conventionRows[static_cast<std::size_t>(convention)].text;
}

}  // namespace tarnvale
