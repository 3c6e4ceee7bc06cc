#include "data/plain_scan.h"

#include <algorithm>
#include <cstring>

#include "common/copy_short.h"
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

// What is done with the key of each record. A copy in the scan's loop: what lies in memory would be read anew for every
// record, since an entry's bytes may be anything.
class KeyCopy {
 public:
  explicit KeyCopy(const PlainScan& scan)
      : plan_(scan.scanner.plan),
        comparison_(scan.comparison),
        onlyRange_(onlyRangeOf(plan_)),
        upperCase_(plan_.upperCase),
        tested_(plan_.conditionCount > 0) {}

  // True when the record is selected.
  bool operator()(const RecordBytes& record, std::uint8_t* key) const {
    if (record.size() < onlyRange_.column + onlyRange_.length) {
      if (tested_ && !meetsConditions(plan_, comparison_, record)) return false;
      copyKeyRanges(plan_, record, key);
      return true;
    }
    const std::uint8_t* const range = record.begin + onlyRange_.column;
    if (upperCase_) {
      copyFolded(key, range, onlyRange_.length);
    } else {
      copyShort(key, range, onlyRange_.length);
    }
    return true;
  }

 private:
  // The whole of the key, where it is one range and no record is left out: by far the most frequent plan. Else a range
  // that no record reaches.
  static KeyPlan::Range onlyRangeOf(const KeyPlan& plan) {
    const bool only = plan.rangeCount == 1 && plan.conditionCount == 0 && !plan.ranges[0].reversed;
    return only ? plan.ranges[0] : KeyPlan::Range{maxRecordSize, 0, 1, false};
  }

  const KeyPlan& plan_;
  const RecordComparison& comparison_;
  KeyPlan::Range onlyRange_;
  bool upperCase_;
  bool tested_;  // the record may be left out
};

// The next three give the TABs of a record, one after the other; `firstOf` gives one behind the record when it has
// none.

// For a block in which no TAB stands for blanks.
struct NoTabs {
  NoTabs(const std::uint8_t* /*begin*/, const std::uint8_t* end) : end_(end) {}
  [[nodiscard]] const std::uint8_t* firstOf(const RecordBytes& /*record*/) const { return end_; }
  const std::uint8_t* next() { return end_; }

 private:
  const std::uint8_t* end_;
};

// For short records: sought beyond the record too.
class TabsOfBlock {
 public:
  TabsOfBlock(const std::uint8_t* begin, const std::uint8_t* end) : finder_(begin, end, '\t') { next(); }
  [[nodiscard]] const std::uint8_t* firstOf(const RecordBytes& /*record*/) const { return tab_; }
  const std::uint8_t* next() { return tab_ = finder_.next(); }

 private:
  MarkFinder finder_;
  const std::uint8_t* tab_ = nullptr;
};

// For long records: sought where the search for the mark has just been, in the fastest cache.
class TabsOfRecord {
 public:
  TabsOfRecord(const std::uint8_t* begin, const std::uint8_t* /*end*/) : finder_(begin, begin, '\t') {}
  const std::uint8_t* firstOf(const RecordBytes& record) {
    finder_ = {record.begin, record.end, '\t'};
    return finder_.next();
  }
  const std::uint8_t* next() { return finder_.next(); }

 private:
  SearchingMarkFinder finder_;
};

// Copies in pieces of 16 bytes: up to 15 more than `size`.
void copyPieces(std::uint8_t* to, const std::uint8_t* from, std::uint32_t size) {
  constexpr std::uint32_t piece = 16;
  for (std::uint32_t done = 0; done < size; done += piece) std::memcpy(to + done, from + done, piece);
}

// Expands the TABs of a record, the first of which is `tab`, in its first `needed` columns. How many columns the record
// has.
template <typename Tabs>
std::uint32_t expandRecord(const RecordBytes& record, Tabs& tabs, const std::uint8_t* tab, std::uint32_t needed,
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

// The scan goes on at the cursor.
void goOnAt(Scanner& scanner, const std::uint8_t* cursor, std::uint64_t records) {
  scanner.currentLfa += static_cast<std::uint64_t>(cursor - scanner.blocks.cursor);
  scanner.blocks.cursor = cursor;
  scanner.findings.recordCount += records;
}

template <typename Finder, typename Tabs>
std::uint8_t* scanTextRecords(const PlainScan& scan, std::uint8_t* entry) {
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
  const KeyCopy copyKey(scan);
  const std::uint32_t entrySize = scan.area.entrySize;
  const std::uint8_t* const areaEnd = scan.areaEnd;
  std::uint64_t records = 0;
  Finder marks(cursor, end, mark.first);
  Tabs tabs(cursor, end);
  while (entry != areaEnd && *cursor != 0 && *cursor != ctrlZ) {
    const std::uint8_t* place = marks.next();
    while (mark.second != 0 && place < end && place[1] != mark.second) place = marks.next();
    if (place >= lastStart) break;
    RecordBytes record{cursor, place};
    const std::uint32_t length = record.size() + mark.length;
    if (length > maxRecordSize - mark.length || record.size() < shortest) break;
    std::uint32_t columns = record.size();
    if (const std::uint8_t* const tab = tabs.firstOf(record); tab < place) {
      if (plan.hasExpression) break;
      columns = expandRecord(record, tabs, tab, plan.columnsNeeded, scanner.expanded);
      scanner.findings.format.spaceCompression = true;
      record = {scanner.expanded, scanner.expanded + std::min(columns, plan.columnsNeeded)};
    }
    if (columns > mostColumns) break;
    setEntryHead(entry, lfaOf(cursor), static_cast<std::uint16_t>(length));
    if (copyKey(record, entry + sortEntryHeadSize)) entry += entrySize;
    cursor = place + mark.length;
    ++records;
  }
  goOnAt(scanner, cursor, records);
  return entry;
}

std::uint8_t* scanBinaryRecords(const PlainScan& scan, std::uint8_t* entry) {
  Scanner& scanner = scan.scanner;
  const std::uint32_t size = scanner.recordLimit;
  const std::uint8_t* cursor = scanner.blocks.cursor;
  const std::uint8_t* const end = scanner.blocks.blockEnd;
  const bool withMark = scanner.settings->binaryWithEor;
  const EndOfRecordMark mark = scanner.mark;
  const KeyCopy copyKey(scan);
  const std::uint32_t entrySize = scan.area.entrySize;
  const std::uint8_t* const areaEnd = scan.areaEnd;
  std::uint64_t lfa = scanner.currentLfa;
  std::uint64_t records = 0;
  while (entry != areaEnd && end - cursor >= static_cast<std::ptrdiff_t>(size)) {
    const RecordBytes record{cursor, cursor + size};
    if (isAllNul(record) || (withMark && !endsWithMark(mark, record))) break;
    setEntryHead(entry, lfa, static_cast<std::uint16_t>(size));
    if (copyKey(record, entry + sortEntryHeadSize)) entry += entrySize;
    cursor += size;
    lfa += size;
    ++records;
  }
  goOnAt(scanner, cursor, records);
  return entry;
}

// The first TAB of the block at or behind the cursor, or the block's end. A block without TABs is searched once,
// however often the scan comes back to it.
const std::uint8_t* findNextTab(Scanner& scanner) {
  const BlockReader& blocks = scanner.blocks;
  if (scanner.nextTab == nullptr || scanner.nextTab < blocks.cursor) {
    scanner.nextTab = SearchingMarkFinder(blocks.cursor, blocks.blockEnd, '\t').next();
  }
  return scanner.nextTab;
}

// Whether one search for each record is faster than to look for many marks at once.
bool hasLongRecords(const Scanner& scanner) {
  constexpr std::uint32_t longRecord = 400;  // bytes
  const std::uint64_t records = scanner.findings.recordCount;
  return records == 0 ? scanner.recordLimit >= longRecord : scanner.currentLfa >= records * longRecord;
}

}  // namespace

bool isAllNul(const RecordBytes& record) {
  return *record.begin == 0 && std::all_of(record.begin, record.end, [](std::uint8_t b) { return b == 0; });
}

bool endsWithMark(const EndOfRecordMark& mark, const RecordBytes& record) {
  if (mark.length == 0) return true;  // f and g together, and a file without any mark
  if (mark.length == 1) return record.end[-1] == mark.first;
  return record.end[-2] == mark.first && record.end[-1] == mark.second;
}

bool mayScanPlainRecords(const Scanner& scanner) {
  const KeyPlan& plan = scanner.plan;
  if (plan.walkOnly || scanner.recordLimit == 0) return false;
  return !scanner.settings->binaryRecords || !plan.hasExpression || scanner.recordLimit >= plan.columnsNeeded;
}

std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                               const std::uint8_t* areaEnd) {
  const BlockReader& blocks = scanner.blocks;
  const PlainScan scan{scanner, area, areaEnd, {scanner.settings->selection, blocks.readAheadEnd, scanner.expandsTabs}};
  if (blocks.binary) return scanBinaryRecords(scan, entry);
  if (hasLongRecords(scanner)) {
    return scanner.expandsTabs ? scanTextRecords<SearchingMarkFinder, TabsOfRecord>(scan, entry)
                               : scanTextRecords<SearchingMarkFinder, NoTabs>(scan, entry);
  }
  const bool tabs = scanner.expandsTabs && findNextTab(scanner) < blocks.blockEnd;
  return tabs ? scanTextRecords<MarkFinder, TabsOfBlock>(scan, entry)
              : scanTextRecords<MarkFinder, NoTabs>(scan, entry);
}

}  // namespace tarnvale
