#include "data/plain_scan.h"

#include "data/mark_finder.h"

namespace tarnvale {

namespace {

// What the loop over plain records needs.
struct PlainScan {
  Scanner& scanner;
  const EntryArea& area;
  const std::uint8_t* areaEnd;
  RecordComparison comparison;
  const std::uint8_t* end;  // plain records end before it
};

// The whole of the key, where it is one range and no record is left out: by far the most frequent plan. Else a range
// that no record reaches.
KeyPlan::Range onlyRangeOf(const KeyPlan& plan) {
  const bool only = plan.rangeCount == 1 && plan.conditionCount == 0 && !plan.ranges[0].reversed && !plan.upperCase;
  return only ? plan.ranges[0] : KeyPlan::Range{maxRecordSize, 0, 1, false};
}

template <typename Finder>
std::uint8_t* scanWith(const PlainScan& scan, std::uint8_t* entry) {
  Scanner& scanner = scan.scanner;
  const EndOfRecordMark mark = scanner.mark;
  const std::uint8_t* cursor = scanner.blocks.cursor;
  const std::uint8_t* const end = scan.end;
  const std::uint8_t* const lastStart = scanner.blocks.blockEnd - mark.length;
  const std::uint32_t shortest = scanner.plan.hasExpression ? scanner.plan.columnsNeeded : 0;
  const std::uint64_t bufferLfa = scanner.currentLfa - static_cast<std::uint64_t>(cursor - scanner.blocks.buffer);
  const auto lfaOf = [&](const std::uint8_t* place) {
    return bufferLfa + static_cast<std::uint64_t>(place - scanner.blocks.buffer);
  };
  // Copies: what lies in memory would be read anew for every record, since an entry's bytes may be anything.
  const KeyPlan::Range onlyRange = onlyRangeOf(scanner.plan);
  const std::uint32_t conditions = scanner.settings->selection.optionCount;
  const std::uint32_t entrySize = scan.area.entrySize;
  const std::uint8_t* const areaEnd = scan.areaEnd;
  std::uint64_t records = 0;
  Finder marks(cursor, end, mark.first);
  while (entry != areaEnd && *cursor != 0 && *cursor != ctrlZ) {
    const std::uint8_t* place = marks.next();
    while (mark.second != 0 && place < end && place[1] != mark.second) place = marks.next();
    if (place >= end || place >= lastStart) break;
    const RecordBytes record{cursor, place};
    const std::uint32_t length = record.size() + mark.length;
    if (length > maxRecordSize - mark.length || record.size() < shortest) break;
    setEntryHead(entry, lfaOf(cursor), static_cast<std::uint16_t>(length));
    std::uint8_t* const key = entry + sortEntryHeadSize;
    if (record.size() >= onlyRange.column + onlyRange.length) {
      copyShort(key, record.begin + onlyRange.column, onlyRange.length);
      entry += entrySize;
    } else if (copyKeyRanges(scanner.plan, scan.comparison, record, key) == conditions) {
      entry += entrySize;
    }
    cursor = place + mark.length;
    ++records;
  }
  scanner.currentLfa = lfaOf(cursor);
  scanner.blocks.cursor = cursor;
  scanner.findings.recordCount += records;
  return entry;
}

}  // namespace

bool mayScanPlainRecords(const Scanner& scanner) {
  const Settings& settings = *scanner.settings;
  return !settings.binaryRecords && !settings.spaceCompression && !scanner.plan.walkOnly && scanner.recordLimit != 0;
}

std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                               const std::uint8_t* areaEnd) {
  constexpr std::uint32_t longRecord = 400;  // bytes; from here on one search for each is faster
  const BlockReader& blocks = scanner.blocks;
  const PlainScan scan{scanner,
                       area,
                       areaEnd,
                       {scanner.settings->selection, blocks.readAheadEnd, scanner.expandsTabs},
                       scanner.expandsTabs ? findNextTab(scanner, blocks.cursor) : blocks.blockEnd};
  return scanner.recordLimit < longRecord ? scanWith<MarkFinder>(scan, entry)
                                          : scanWith<SearchingMarkFinder>(scan, entry);
}

}  // namespace tarnvale
