#include "data/scanner.h"

namespace tarnvale {

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
