#include "data/plain_scan.h"

#include <algorithm>
#include <cstring>

#include "data/mark_finder.h"

namespace tarnvale {

namespace {

// What the loop over plain records needs.
struct PlainScan {
  Scanner& scanner;
  const EntryArea& area;
  const std::uint8_t* areaEnd;
  RecordComparison comparison;
};

// The whole of the key, where it is one range and no record is left out: by far the most frequent plan. Else a range
// that no record reaches.
KeyPlan::Range onlyRangeOf(const KeyPlan& plan) {
  const bool only = plan.rangeCount == 1 && plan.conditionCount == 0 && !plan.ranges[0].reversed;
  return only ? plan.ranges[0] : KeyPlan::Range{maxRecordSize, 0, 1, false};
}

// For a block in which no TAB stands for blanks.
struct NoTabs {
  NoTabs(const std::uint8_t* /*begin*/, const std::uint8_t* end, std::uint8_t /*mark*/) : end_(end) {}
  const std::uint8_t* next() { return end_; }

 private:
  const std::uint8_t* end_;
};

// Copies in pieces of 16 bytes: up to 15 more than `size`.
void copyPieces(std::uint8_t* to, const std::uint8_t* from, std::uint32_t size) {
  constexpr std::uint32_t piece = 16;
  for (std::uint32_t done = 0; done < size; done += piece) std::memcpy(to + done, from + done, piece);
}

// Expands the TABs of a record, the first of which is `tab`, in its first `needed` columns. `tab` becomes the one
// behind the record. How many columns the record has.
template <typename Finder>
std::uint32_t expandRecord(const RecordBytes& record, Finder& tabs, const std::uint8_t*& tab, std::uint32_t needed,
                           std::uint8_t* expanded) {
  const std::uint8_t* at = record.begin;
  std::uint32_t column = 0;
  for (;;) {
    const std::uint8_t* const end = std::min(tab, record.end);
    const auto length = static_cast<std::uint32_t>(end - at);
    if (column < needed) copyPieces(expanded + column, at, std::min(length, needed - column));
    column += length;
    if (end == record.end) return column;
    if (column < needed) std::memset(expanded + column, ' ', tabWidth);
    column += tabWidth - column % tabWidth;
    at = tab + 1;
    tab = tabs.next();
  }
}

template <typename Finder, typename TabFinder>
std::uint8_t* scanWith(const PlainScan& scan, std::uint8_t* entry) {
  Scanner& scanner = scan.scanner;
  const KeyPlan& plan = scanner.plan;
  const EndOfRecordMark mark = scanner.mark;
  const std::uint8_t* cursor = scanner.blocks.cursor;
  const std::uint8_t* const end = scanner.blocks.blockEnd;
  const std::uint8_t* const lastStart = end - mark.length;
  const std::uint32_t shortest = plan.hasExpression ? plan.columnsNeeded : 0;
  const std::uint32_t mostColumns = scanner.settings->spaceCompression ? scanner.recordLimit : maxRecordSize * tabWidth;
  const std::uint64_t bufferLfa = scanner.currentLfa - static_cast<std::uint64_t>(cursor - scanner.blocks.buffer);
  const auto lfaOf = [&](const std::uint8_t* place) {
    return bufferLfa + static_cast<std::uint64_t>(place - scanner.blocks.buffer);
  };
  // Copies: what lies in memory would be read anew for every record, since an entry's bytes may be anything.
  const KeyPlan::Range onlyRange = onlyRangeOf(plan);
  const std::uint32_t conditions = scanner.settings->selection.optionCount;
  const bool upperCase = plan.upperCase;
  const std::uint32_t entrySize = scan.area.entrySize;
  const std::uint8_t* const areaEnd = scan.areaEnd;
  std::uint64_t records = 0;
  Finder marks(cursor, end, mark.first);
  TabFinder tabs(cursor, end, '\t');
  const std::uint8_t* tab = tabs.next();
  while (entry != areaEnd && *cursor != 0 && *cursor != ctrlZ) {
    const std::uint8_t* place = marks.next();
    while (mark.second != 0 && place < end && place[1] != mark.second) place = marks.next();
    if (place >= lastStart) break;
    RecordBytes record{cursor, place};
    const std::uint32_t length = record.size() + mark.length;
    if (length > maxRecordSize - mark.length || record.size() < shortest) break;
    std::uint32_t columns = record.size();
    if (tab < place) {
      if (plan.hasExpression) break;
      columns = expandRecord(record, tabs, tab, plan.columnsNeeded, scanner.expanded);
      scanner.findings.format.spaceCompression = true;
      record = {scanner.expanded, scanner.expanded + std::min(columns, plan.columnsNeeded)};
    }
    if (columns > mostColumns) break;
    setEntryHead(entry, lfaOf(cursor), static_cast<std::uint16_t>(length));
    std::uint8_t* const key = entry + sortEntryHeadSize;
    if (record.size() >= onlyRange.column + onlyRange.length) {
      const std::uint8_t* const range = record.begin + onlyRange.column;
      if (upperCase) {
        copyFolded(key, range, onlyRange.length);
      } else {
        copyShort(key, range, onlyRange.length);
      }
      entry += entrySize;
    } else if (copyKeyRanges(plan, scan.comparison, record, key) == conditions) {
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
  return !scanner.settings->binaryRecords && !scanner.plan.walkOnly && scanner.recordLimit != 0;
}

std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                               const std::uint8_t* areaEnd) {
  constexpr std::uint32_t longRecord = 400;  // bytes; from here on one search for each is faster
  const BlockReader& blocks = scanner.blocks;
  const PlainScan scan{scanner, area, areaEnd, {scanner.settings->selection, blocks.readAheadEnd, scanner.expandsTabs}};
  const bool tabs = scanner.expandsTabs && findNextTab(scanner, blocks.cursor) < blocks.blockEnd;
  if (scanner.recordLimit < longRecord) {
    return tabs ? scanWith<MarkFinder, MarkFinder>(scan, entry) : scanWith<MarkFinder, NoTabs>(scan, entry);
  }
  return tabs ? scanWith<SearchingMarkFinder, SearchingMarkFinder>(scan, entry)
              : scanWith<SearchingMarkFinder, NoTabs>(scan, entry);
}

}  // namespace tarnvale
