#include "data/scanner.h"

#include <cstring>

namespace tarnvale {

const std::uint8_t* findNextTab(Scanner& scanner, const std::uint8_t* from) {
  if (scanner.nextTab == nullptr || scanner.nextTab < from) {
    const std::uint8_t* const end = scanner.blocks.blockEnd;
    const void* const tab = std::memchr(from, '\t', static_cast<std::size_t>(end - from));
    scanner.nextTab = tab != nullptr ? static_cast<const std::uint8_t*>(tab) : end;
  }
  return scanner.nextTab;
}

bool startScan(Scanner& scanner, const Settings& settings, const RecordFormat& format, int fd, std::uint8_t* buffer,
               Messages& messages) {
  scanner = {};
  scanner.settings = &settings;
  scanner.plan = makeKeyPlan(settings.keys);
  scanner.mark = format.mark;
  scanner.markBehind = settings.binaryRecords ? 0 : format.mark.length;
  scanner.recordLimit = format.recordLimit;
  scanner.expandsTabs = settings.tabExpansion && !settings.binaryRecords;
  scanner.expanded = buffer + inputBufferSize;
  scanner.blocks.fd = fd;
  scanner.blocks.binary = settings.binaryRecords;
  scanner.blocks.buffer = buffer;
  return fillInputBuffer(scanner.blocks, messages) != BlockResult::readFailed;
}

}  // namespace tarnvale
