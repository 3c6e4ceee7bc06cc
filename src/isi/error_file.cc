#include "isi/error_file.h"

#include <atomic>
#include <cstring>

#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"
#include "common/sort_entry.h"

namespace tarnvale {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// Written and forgotten in one step: the interrupt handler writes what it finds in the buffer.
void flushErrorFile(RunContext& run) {
  bool written = false;
  {
    const InterruptHold hold;
    written = writeAll(run.errorFileFd, run.errorFileBuffer.data(), run.errorFileBuffered);
    run.errorFileBuffered = 0;
  }
  if (written || run.errorFileIncomplete) return;
  run.errorFileIncomplete = true;
  putComposed(run, {"Unable to write all duplicate keys to error file ", fileName(run.errorFileName), "\n"});
}

}  // namespace

void putErrorFileLine(RunContext& run, std::string_view line) {
  if (run.errorFileFd < 0) return;
  if (line.size() + lineEnd.size() > run.errorFileBuffer.size() - run.errorFileBuffered) flushErrorFile(run);
  char* const place = run.errorFileBuffer.data() + run.errorFileBuffered;
  std::memcpy(place, line.data(), line.size());
  std::memcpy(place + line.size(), lineEnd.data(), lineEnd.size());
  std::atomic_signal_fence(std::memory_order_release);  // the interrupt handler counts on whole lines
  run.errorFileBuffered += line.size() + lineEnd.size();
}

void reportDuplicate(RunContext& run, const std::uint8_t* entry) {
  if (!run.errorFileWanted || run.quietDuplicates) return;
  FixedText<300> message;  // not messageBuffer: a failing write of the error file uses that
  message.format("%s%16llX Key:", run.ignoreDuplicatesForNodup ? "Duplicate Key ignored at:" : "Duplicate Key at:",
                 static_cast<unsigned long long>(entryLfa(entry)));
  static_cast<void>(message.append({reinterpret_cast<const char*>(entryKey(entry)), run.indexKeyLength}));
  static_cast<void>(message.append(" "));
  putErrorFileLine(run, message);
  if (!run.noDuplicates) return;
  static_cast<void>(message.append("\n"));
  PutMessage(run, message);
}

void closeErrorFile(RunContext& run) {
  if (run.errorFileFd < 0) return;
  flushErrorFile(run);
  const InterruptHold hold;
  closeFile(run.errorFileFd);
}

}  // namespace tarnvale
