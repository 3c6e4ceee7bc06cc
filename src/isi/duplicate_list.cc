#include "isi/duplicate_list.h"

#include <atomic>
#include <cstring>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// Written and forgotten in one step: the interrupt handler writes what it finds collected.
void flushErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  bool written = false;
  {
    const InterruptHold hold;
    written = writeAll(file.fd, file.collected, file.collectedSize);
    file.collectedSize = 0;
  }
  if (written || list.incomplete) return;
  list.incomplete = true;
  putComposed(messages, {"Unable to write all duplicate keys to error file ", fileName(file.name), "\n"});
}

}  // namespace

void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line) {
  if (!file.isOpen()) return;
  if (line.size() + lineEnd.size() > list.lines.size() - file.collectedSize) flushErrorFile(list, file, messages);
  file.collected = list.lines.data();
  char* const place = list.lines.data() + file.collectedSize;
  std::memcpy(place, line.data(), line.size());
  std::memcpy(place + line.size(), lineEnd.data(), lineEnd.size());
  std::atomic_signal_fence(std::memory_order_release);  // the interrupt handler counts on whole lines
  file.collectedSize += line.size() + lineEnd.size();
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
  if (!settings.noDuplicates) return;
  static_cast<void>(message.append("\n"));
  putMessage(messages, message);
}

void closeErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages) {
  if (!file.isOpen()) return;
  flushErrorFile(list, file, messages);
  const InterruptHold hold;
  closeFile(file.fd);
}

}  // namespace tarnvale
