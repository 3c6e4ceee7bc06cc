#include "read/record_reader.h"

#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr NamedMark marks[] = {{"\r", "CR"}, {"\r\n", "CR LF"}, {"\n", "LF"}, {"\n\r", "LF CR"}};
constexpr NamedMark noMark = {"", "none"};
constexpr std::string_view endOfText = "\x1A";  // may follow the last record of a text file, with or without its mark

}  // namespace

NamedMark endOfRecordOf(std::uint8_t recordFlags) {
  if ((recordFlags & record_flag::binary) != 0) return noMark;
  return marks[(recordFlags & record_flag::eorMask) >> 6];
}

RecordResult readRecord(const IsiHandle& index, const IsiEntryHead& entry, int dataFd, std::string& record) {
  const std::string_view mark = endOfRecordOf(index.area.header.recordFlags).bytes;
  const std::size_t length = entry.recordLength;
  if (length < mark.size() || length == 0) return RecordResult::noRecord;
  record.resize(length);
  const ssize_t count = readAt(dataFd, record.data(), length, lfaOf(index, entry));
  if (count < 0) return RecordResult::notRead;
  record.resize(static_cast<std::size_t>(count));
  const std::size_t bodyLength = length - mark.size();
  if (record.size() < bodyLength) return RecordResult::noRecord;
  const std::string_view behind = std::string_view(record).substr(bodyLength);
  if (behind == mark) return RecordResult::done;
  if (!behind.empty() && behind != endOfText) return RecordResult::noRecord;
  record.resize(bodyLength);
  record += mark;
  return RecordResult::done;
}

}  // namespace tarnvale
