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

// What a report says of an entry. There may be one for every record.
class DuplicateLine {
 public:
  DuplicateLine(const LineStart& start, const std::uint8_t* entry, std::uint32_t keyLength)
      : size_(start.size + keyLength + 1) {
    copyLine(bytes_.data(), start.bytes.data(), start.bytes.size());
    putHexBefore(start.numberEnd, entryLfa(entry));
    copyShort(bytes_.data() + start.size, reinterpret_cast<const char*>(entryKey(entry)), keyLength);
    std::ranges::copy(std::string_view(" \n"), bytes_.data() + size_ - 1);
  }

  [[nodiscard]] std::string_view text() const { return {bytes_.data(), size_}; }
  [[nodiscard]] std::string_view textAndNewline() const { return {bytes_.data(), size_ + 1}; }

 private:
  void putHexBefore(std::size_t place, std::uint64_t number) {
    const auto high = static_cast<std::uint32_t>(number >> 32);
    const auto put = [this](std::size_t at, Le64 digits) { std::memcpy(bytes_.data() + at, &digits, sizeof digits); };
    put(place - 8, hexDigits(static_cast<std::uint32_t>(number), high != 0));
    if (high != 0) put(place - 16, hexDigits(high, false));
  }

  std::array<char, sizeof(LineStart::bytes) + maxKeyLength + 2> bytes_;
  std::size_t size_;
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
    written = writeLines(file) && collectLine(file.collected, list.lines, line.substr(ofLine), end.substr(ofEnd));
  }
  if (!written) reportIncomplete(list, file, messages);
}

}  // namespace

void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line) {
  constexpr std::string_view end = "\r\n";
  if (!file.isOpen() || collectLine(file.collected, list.lines, line, end)) return;
  collectAcross(list, file, messages, line, end);
}

void reportDuplicate(DuplicateList& list, TrackedFile& file, Messages& messages, const Settings& settings,
                     const std::uint8_t* entry, std::uint32_t keyLength) {
  if (!settings.errorFileWanted || settings.quietDuplicates) return;
  const DuplicateLine line(settings.ignoreDuplicates ? droppedStart : keptStart, entry, keyLength);
  putErrorFileLine(list, file, messages, line.text());
  if (settings.noDuplicates) putCollectedLine(messages, line.textAndNewline());
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
