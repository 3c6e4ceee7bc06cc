#include "isi/duplicate_list.h"

#include <algorithm>
#include <cstring>

#include "common/copy_short.h"
#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "format/byte_order.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

// The beginning of each report, with blanks for the number.
struct LineStart {
  std::array<char, 48> bytes{};
  std::size_t numberEnd = 0;
  std::size_t size = 0;

  explicit constexpr LineStart(std::string_view text) {
    constexpr std::size_t columns = 16;  // of the number, which stands at their end
    constexpr std::string_view keyTitle = " Key:";
    char* const number = std::ranges::copy(text, bytes.begin()).out;
    char* const title = std::fill_n(number, columns, ' ');
    numberEnd = text.size() + columns;
    std::ranges::copy(keyTitle, title);
    size = numberEnd + keyTitle.size();
  }
};
constexpr LineStart droppedStart("Duplicate Key ignored at:");
constexpr LineStart keptStart("Duplicate Key at:");

// A number in hexadecimal, eight digits wide, the first one in the lowest byte. Blanks take the place of leading zeros
// unless `filled`.
[[gnu::always_inline]] inline Le64 hexDigits(std::uint32_t number, bool filled) {
  constexpr std::uint64_t each = 0x0101010101010101;
  std::uint64_t digits = number;  // spread over the bytes: halves, pairs, single ones
  digits = (digits | digits << 16) & 0x0000FFFF0000FFFF;
  digits = (digits | digits << 8) & 0x00FF00FF00FF00FF;
  digits = __builtin_bswap64((digits | digits << 4) & 0x0F * each);
  const std::uint64_t letters = (digits + (0x10 - 10) * each) >> 4 & each;
  const std::uint64_t shown = digits + '0' * each + letters * ('A' - '9' - 1);
  const std::uint64_t kept = digits | std::uint64_t{1} << 56;  // the last digit is shown, also when it is 0
  const std::uint64_t leading = filled ? 0 : (kept - 1) & ~kept;
  Le64 text;
  text = shown - (leading & ('0' - ' ') * each);
  return text;
}

constexpr std::string_view lineEnd = "\r\n";   // in the error file
constexpr std::string_view listEnd = " \r\n";  // behind a key there
constexpr std::string_view messageEnd = " \n";
constexpr std::uint64_t blanks = 0x2020202020202020;

// What a report says of an entry. There may be one for every record, so it is composed in each buffer where it is to
// stand: to read back what was just written takes longer.
class DuplicateLine {
 public:
  [[gnu::always_inline]] DuplicateLine(const LineStart& start, const std::uint8_t* entry, std::uint32_t keyLength)
      : start_(start), key_(reinterpret_cast<const char*>(entryKey(entry))), keyLength_(keyLength) {
    const auto high = static_cast<std::uint32_t>(entryLfa(entry) >> 32);
    low_ = hexDigits(static_cast<std::uint32_t>(entryLfa(entry)), high != 0);
    high_ = high != 0 ? hexDigits(high, false) : blanks;
  }

  // Bytes that composeAt may write: it copies all bytes of the start, and what follows covers the unused ones.
  [[nodiscard]] std::size_t room() const { return sizeof start_.bytes + keyLength_ + listEnd.size(); }

  // Writes the line and its end to a place with room for them, and returns their size.
  [[gnu::always_inline]] std::size_t composeAt(char* to, std::string_view end) const {
    std::memcpy(to, start_.bytes.data(), sizeof start_.bytes);
    std::memcpy(to + start_.numberEnd - sizeof low_, &low_, sizeof low_);
    std::memcpy(to + start_.numberEnd - sizeof low_ - sizeof high_, &high_, sizeof high_);
    copyShort(to + start_.size, key_, keyLength_);
    std::ranges::copy(end, to + start_.size + keyLength_);
    return start_.size + keyLength_ + end.size();
  }

 private:
  const LineStart& start_;
  const char* key_;
  std::size_t keyLength_;
  Le64 low_;
  Le64 high_;
};

// A line by itself: where there may be no room behind the collected ones, or none are collected.
struct SingleLine {
  std::array<char, sizeof(LineStart::bytes) + maxKeyLength + listEnd.size()> bytes;
  std::size_t size;

  SingleLine(const DuplicateLine& line, std::string_view end) : size(line.composeAt(bytes.data(), end)) {}

  [[nodiscard]] std::string_view view() const { return {bytes.data(), size}; }
};

void reportIncomplete(DuplicateList& list, const TrackedFile& file, Messages& messages) {
  if (list.incomplete) return;
  list.incomplete = true;
  putComposed(messages, {"Unable to write all duplicate keys to error file ", fileName(file.name), "\n"});
}

void flushErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  bool written = false;
  {
    const InterruptHold hold;
    list.blocks.take(file.fd, file.collected.size);
    written = writeLines(file);
  }
  if (!written) reportIncomplete(list, file, messages);
}

// Fills the buffer up with the beginning of a line that it has no room for, writes it, and begins the next one with the
// rest: the system takes whole buffers faster. Where the beginning could not be written, the rest is dropped too.
void collectAcross(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line,
                   std::string_view end) {
  const std::size_t room = list.lines.size() - file.collected.size;
  const std::size_t ofLine = std::min(room, line.size());
  const std::size_t ofEnd = room - ofLine;
  bool written = false;
  {
    const InterruptHold hold;  // no half line for an interrupt
    static_cast<void>(collectLine(file.collected, list.lines, line.substr(0, ofLine), end.substr(0, ofEnd)));
    list.blocks.take(file.fd, file.collected.size);
    written = writeLines(file) && collectLine(file.collected, list.lines, line.substr(ofLine), end.substr(ofEnd));
  }
  if (!written) reportIncomplete(list, file, messages);
}

// By itself, so that an entry without a report costs no more than the question.
[[gnu::noinline]] void putDuplicateLine(DuplicateList& list, TrackedFile& file, Messages& messages,
                                        const Settings& settings, const std::uint8_t* entry, std::uint32_t keyLength) {
  const DuplicateLine line(settings.ignoreDuplicates ? droppedStart : keptStart, entry, keyLength);
  const auto composeListed = [&](char* to) { return line.composeAt(to, listEnd); };
  if (file.isOpen() && !collectComposed(file.collected, list.lines, line.room(), composeListed)) [[unlikely]] {
    putErrorFileLine(list, file, messages, SingleLine(line, listEnd.substr(0, listEnd.size() - lineEnd.size())).view());
  }
  if (!settings.noDuplicates) return;
  const auto composeShown = [&](char* to) { return line.composeAt(to, messageEnd); };
  if (!collectMessage(messages, line.room(), composeShown)) [[unlikely]] {
    putCollectedLine(messages, SingleLine(line, messageEnd).view());
  }
}

}  // namespace

void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line) {
  if (!file.isOpen() || collectLine(file.collected, list.lines, line, lineEnd)) return;
  collectAcross(list, file, messages, line, lineEnd);
}

void reportDuplicate(DuplicateList& list, TrackedFile& file, Messages& messages, const Settings& settings,
                     const std::uint8_t* entry, std::uint32_t keyLength) {
  if (!settings.errorFileWanted || settings.quietDuplicates) return;
  putDuplicateLine(list, file, messages, settings, entry, keyLength);
}

void closeErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  if (!file.isOpen()) return;
  flushErrorFile(list, file, messages);
  bool closed = false;
  {
    const InterruptHold hold;
    closed = closeFile(file.fd);
  }
  if (!closed && list.any()) reportIncomplete(list, file, messages);  // it may be a write that failed
}

}  // namespace tarnvale
