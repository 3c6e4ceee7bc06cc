#include "isi/duplicate_list.h"

#include <cstring>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

constexpr std::string_view droppedText = "Duplicate Key ignored at:";
constexpr std::string_view keptText = "Duplicate Key at:";

// What a report says of an entry. There may be one for every record.
class DuplicateLine {
 public:
  DuplicateLine(std::string_view text, const std::uint8_t* entry, std::uint32_t keyLength) {
    put(text);
    putHexColumn(entryLfa(entry));
    put(" Key:");
    put({reinterpret_cast<const char*>(entryKey(entry)), keyLength});
    put(" ");
  }

  // The line with this end; it holds up to the next call.
  std::string_view endingWith(std::string_view end) {
    std::memcpy(bytes_.data() + size_, end.data(), end.size());
    return {bytes_.data(), size_ + end.size()};
  }

 private:
  static constexpr std::size_t columns = 16;  // of the number, which stands at their end

  void put(std::string_view piece) {
    std::memcpy(bytes_.data() + size_, piece.data(), piece.size());
    size_ += piece.size();
  }

  void putHexColumn(std::uint64_t number) {
    std::memset(bytes_.data() + size_, ' ', columns);
    size_ += columns;
    std::size_t place = size_;
    do {
      bytes_[--place] = "0123456789ABCDEF"[number % 16];
      number /= 16;
    } while (number != 0);
  }

  std::array<char, droppedText.size() + columns + maxKeyLength + 8> bytes_;
  std::size_t size_ = 0;
};

void reportIncomplete(DuplicateList& list, const TrackedFile& file, Messages& messages) {
  if (list.incomplete) return;
  list.incomplete = true;
  putComposed(messages, {"Unable to write all duplicate keys to error file ", fileName(file.name), "\n"});
}

// Written and forgotten in one step: the interrupt handler writes what it finds collected.
void flushErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  bool written = false;
  {
    const InterruptHold hold;
    written = writeAll(file.fd, file.collected.bytes, file.collected.size);
    file.collected.size = 0;
  }
  if (!written) reportIncomplete(list, file, messages);
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
  DuplicateLine line(settings.ignoreDuplicates ? droppedText : keptText, entry, keyLength);
  putErrorFileLine(list, file, messages, {line.endingWith("\r\n")});
  if (settings.noDuplicates) putCollectedLine(messages, {line.endingWith("\n")});
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
