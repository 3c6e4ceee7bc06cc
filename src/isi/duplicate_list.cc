#include "isi/duplicate_list.h"

#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

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

void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line) {
  constexpr std::string_view lineEnd = "\r\n";
  if (!file.isOpen() || collectLine(file.collected, list.lines, line, lineEnd)) return;
  flushErrorFile(list, file, messages);
  static_cast<void>(collectLine(file.collected, list.lines, line, lineEnd));
}

void reportDuplicate(DuplicateList& list, TrackedFile& file, Messages& messages, const Settings& settings,
                     const std::uint8_t* entry, std::uint32_t keyLength) {
  if (!settings.errorFileWanted || settings.quietDuplicates) return;
  FixedText<300> message;  // not the messages' buffer: a failing write of the error file uses that
  message.format("%s%16llX Key:", settings.ignoreDuplicates ? "Duplicate Key ignored at:" : "Duplicate Key at:",
                 static_cast<unsigned long long>(entryLfa(entry)));
  static_cast<void>(message.append({reinterpret_cast<const char*>(entryKey(entry)), keyLength}));
  static_cast<void>(message.append(" "));
  putErrorFileLine(list, file, messages, message);
  if (settings.noDuplicates) putCollectedLine(messages, message);
}

void closeErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  if (!file.isOpen()) return;
  flushErrorFile(list, file, messages);
  const InterruptHold hold;
  closeFile(file.fd);
}

}  // namespace tarnvale
