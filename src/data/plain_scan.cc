#include "data/plain_scan.h"

#include "data/mark_finder.h"

namespace tarnvale {

namespace {

// Copies the key of a plain record. One range inside the record is by far the most frequent plan.
void copyPlainKey(const Scanner& scanner, const KeyPlan::Range* onlyRange, const RecordBytes& record,
                  std::uint8_t* key) {
  if (onlyRange != nullptr && record.size() >= onlyRange->column + onlyRange->length) {
    copyShort(key, record.begin + onlyRange->column, onlyRange->length);
    return;
  }
  const RecordComparison noSelection{scanner.settings->selection};
  copyKeyRanges(scanner.plan, noSelection, record, key);
}

// Where plain records end: before the next TAB to expand, and before what is not in the block.
const std::uint8_t* endOfPlainRecords(Scanner& scanner) {
  const BlockReader& blocks = scanner.blocks;
  return scanner.expandsTabs ? findNextTab(scanner, blocks.cursor) : blocks.blockEnd;
}

}  // namespace

bool mayScanPlainRecords(const Scanner& scanner) {
  const Settings& settings = *scanner.settings;
  return !settings.binaryRecords && !settings.spaceCompression && settings.selection.optionCount == 0 &&
         scanner.recordLimit != 0;
}

std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                               const std::uint8_t* areaEnd) {
  const KeyPlan& plan = scanner.plan;
  const bool oneRange = plan.rangeCount == 1 && !plan.ranges[0].reversed && !plan.upperCase;
  const KeyPlan::Range* const onlyRange = oneRange ? &plan.ranges[0] : nullptr;
  const std::uint8_t* cursor = scanner.blocks.cursor;
  const std::uint8_t* const end = endOfPlainRecords(scanner);
  const EndOfRecordMark mark = scanner.mark;
  const std::uint8_t* const lastStart = scanner.blocks.blockEnd - mark.length;
  const std::uint64_t blockLfa = scanner.currentLfa - static_cast<std::uint64_t>(cursor - scanner.blocks.buffer);
  const auto lfaOf = [&](const std::uint8_t* place) {
    return blockLfa + static_cast<std::uint64_t>(place - scanner.blocks.buffer);
  };
  const std::uint8_t* const firstEntry = entry;
  MarkFinder marks(cursor, end, mark.first);
  while (entry != areaEnd && *cursor != 0 && *cursor != ctrlZ) {
    const std::uint8_t* place = marks.next();
    while (mark.second != 0 && place < end && place[1] != mark.second) place = marks.next();
    if (place >= end || place >= lastStart) break;
    const RecordBytes record{cursor, place};
    const std::uint32_t length = record.size() + mark.length;
    if (length > maxRecordSize - mark.length) break;
    setEntryHead(entry, lfaOf(cursor), static_cast<std::uint16_t>(length));
    copyPlainKey(scanner, onlyRange, record, entry + sortEntryHeadSize);
    entry += area.entrySize;
    cursor = place + mark.length;
  }
  scanner.currentLfa = lfaOf(cursor);
  scanner.blocks.cursor = cursor;
  scanner.findings.recordCount += static_cast<std::size_t>(entry - firstEntry) / area.entrySize;
  return entry;
}

}  // namespace tarnvale
