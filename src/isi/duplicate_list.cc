#include "isi/duplicate_list.h"

#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// A number in upper-case hexadecimal digits, at the end of 16 columns. There may be one of them for every record.
class HexColumn {
 public:
  explicit HexColumn(std::uint64_t number) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    columns_.fill(' ');
    std::size_t place = columns_.size();
    do {
      columns_[--place] = digits[number % digits.size()];
      number /= digits.size();
    } while (number != 0);
  }
  [[nodiscard]] std::string_view text() const { return {columns_.data(), columns_.size()}; }

 private:
  std::array<char, 16> columns_;
};

// Written and forgotten in one step: the interrupt handler writes what it finds collected.
void flushErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  bool written = false;
  {
    const InterruptHold hold;
    written = writeAll(file.fd, file.collected.bytes, file.collected.size);
    file.collected.size = 0;
  }
  if (written || list.incomplete) return;
  list.incomplete = true;
  putComposed(messages, {"Unable to write all duplicate keys to error file ", fileName(file.name), "\n"});
}

}  // namespace

void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, LinePieces pieces) {
  if (!file.isOpen() || collectLine(file.collected, list.lines, pieces)) return;
  flushErrorFile(list, file, messages);
  static_cast<void>(collectLine(file.collected, list.lines, pieces));
}

void reportDuplicate(DuplicateList& list, TrackedFile& file, Messages& messages, const Settings& settings,
                     const std::uint8_t* entry, std::uint32_t keyLength) {
  if (!settings.errorFileWanted || settings.quietDuplicates) return;
  const std::string_view text = settings.ignoreDuplicates ? "Duplicate Key ignored at:" : "Duplicate Key at:";
  const HexColumn lfa(entryLfa(entry));
  const std::string_view key(reinterpret_cast<const char*>(entryKey(entry)), keyLength);
  putErrorFileLine(list, file, messages, {text, lfa.text(), " Key:", key, " ", lineEnd});
  if (settings.noDuplicates) putCollectedLine(messages, {text, lfa.text(), " Key:", key, " ", "\n"});
}

void closeErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  if (!file.isOpen()) return;
  flushErrorFile(list, file, messages);
  const InterruptHold hold;
  closeFile(file.fd);
}

}  // namespace tarnvale
