#include "data/key_extraction.h"

#include <algorithm>
#include <cstring>

#include "common/character_case.h"
#include "common/copy_short.h"

namespace tarnvale {

namespace {

constexpr std::uint8_t padding = ' ';

std::uint8_t toUpper(std::uint8_t byte) { return static_cast<std::uint8_t>(upperCaseChar(static_cast<char>(byte))); }

const std::uint8_t* findTab(const std::uint8_t* from, const std::uint8_t* end) {
  const void* const tab = std::memchr(from, '\t', static_cast<std::size_t>(end - from));
  return tab != nullptr ? static_cast<const std::uint8_t*>(tab) : end;
}

// A position in a record that knows its column; it moves forwards only.
struct ColumnPosition {
  const std::uint8_t* at;
  const std::uint8_t* end;
  const std::uint8_t* tab;  // the first TAB to expand at or behind `at`
  std::uint32_t column = 0;
  bool insideTab = false;  // the column is one of the blanks of the TAB at `at`

  ColumnPosition(const RecordBytes& record, bool expandTabs)
      : at(record.begin), end(record.end), tab(expandTabs ? findTab(record.begin, record.end) : record.end) {}

  // False when the record ends before the column.
  bool moveTo(std::uint32_t target) {
    std::uint32_t atColumn = insideTab ? tabColumn_ : column;
    for (;;) {
      const auto bytesToTab = static_cast<std::uint32_t>(tab - at);
      insideTab = false;
      if (target - atColumn < bytesToTab) {
        at += target - atColumn;
        column = target;
        return true;
      }
      at = tab;
      atColumn += bytesToTab;
      column = atColumn;
      if (at == end) return false;
      const std::uint32_t width = tabWidth - atColumn % tabWidth;
      if (target - atColumn < width) {
        insideTab = true;
        tabColumn_ = atColumn;
        column = target;
        return true;
      }
      atColumn += width;
      ++at;
      column = atColumn;
      tab = findTab(at, end);
    }
  }

 private:
  std::uint32_t tabColumn_ = 0;  // where the TAB at `at` begins
};

// The rest of the key, for the columns that the record did not reach.
void padKey(ColumnWalk& walk, const RecordBytes& record, std::uint32_t column, std::uint8_t* key) {
  for (;; ++column) {
    const std::int32_t place = padKeyByte(walk, record.end, column, padding);
    if (place < 0) return;
    key[place] = padding;
  }
}

// `byte` is the record's byte at the entry's column; for an expression the terms of `column` are compared with the
// record at `position` first.
bool conditionHolds(ColumnWalk& walk, const ColumnEntry& entry, const std::uint8_t* position, std::uint32_t column,
                    std::uint8_t byte) {
  const bool wantsEqual = (entry.flags & column_flag::equal) != 0;
  if ((entry.flags & column_flag::term) == 0) return (byte == entry.matchChar) == wantsEqual;
  evaluateTermsAt(walk.comparison, walk.results, position, column);
  return evaluateExpression(walk.comparison.selection, walk.results) == wantsEqual;
}

bool plainConditionHolds(const RecordComparison& comparison, const ColumnEntry& entry, const RecordBytes& record) {
  const bool wantsEqual = (entry.flags & column_flag::equal) != 0;
  if ((entry.flags & column_flag::term) != 0) return expressionHoldsFor(comparison, record.begin) == wantsEqual;
  const std::uint8_t byte = entry.column < record.size() ? record.begin[entry.column] : padding;
  return (byte == entry.matchChar) == wantsEqual;
}

// The last byte first; eight at a time.
void copyReversed(std::uint8_t* to, const std::uint8_t* from, std::size_t size) {
  std::uint64_t piece = 0;
  for (; size >= sizeof piece; size -= sizeof piece, to += sizeof piece) {
    std::memcpy(&piece, from + size - sizeof piece, sizeof piece);
    piece = __builtin_bswap64(piece);
    std::memcpy(to, &piece, sizeof piece);
  }
  std::reverse_copy(from, from + size, to);
}

void copyRange(const KeyPlan::Range& range, const RecordBytes& record, std::uint8_t* key) {
  const std::uint32_t first = range.reversed ? range.column + 1 - range.length : range.column;
  const std::uint32_t start = std::min(first, record.size());
  const std::uint32_t present = std::min(range.length, record.size() - start);
  const std::uint32_t missing = range.length - present;
  if (range.reversed) {
    copyReversed(key + missing, record.begin + start, present);
  } else {
    copyShort(key, record.begin + start, present);
  }
  if (missing > 0) std::memset(range.reversed ? key : key + present, padding, missing);
}

}  // namespace

// Eight bytes at a time: the highest bit of each byte tells whether it is one of them. The last eight may overlap those
// before.
void copyFolded(std::uint8_t* to, const std::uint8_t* from, std::size_t length) {
  constexpr std::uint64_t each = 0x0101010101010101;
  constexpr std::size_t step = sizeof(std::uint64_t);
  const auto foldEight = [&](std::size_t offset) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, from + offset, step);
    const std::uint64_t low = eight & 0x7F * each;
    const std::uint64_t fromA = low + (0x80 - 'a') * each;
    const std::uint64_t beyondZ = low + (0x7F - 'z') * each;
    const std::uint64_t letters = ~eight & (fromA ^ beyondZ) & 0x80 * each;
    eight -= letters >> 2;
    std::memcpy(to + offset, &eight, step);
  };
  if (length < step) {
    std::transform(from, from + length, to, toUpper);
    return;
  }
  for (std::size_t i = 0; i + step < length; i += step) foldEight(i);
  foldEight(length - step);
}

std::int32_t extractKeyByte(ColumnWalk& walk, const std::uint8_t* position, std::uint32_t column, std::uint8_t& byte) {
  for (;; ++walk.next) {
    const ColumnEntry& entry = *walk.next;
    if (entry.keyPosition == ColumnEntry::endOfTable) return keyTableEnd;
    if (entry.column > column) return keyGap - static_cast<std::int32_t>(entry.column - column);
    if (entry.column < column) continue;
    if ((entry.flags & column_flag::condition) != 0) {
      if (!conditionHolds(walk, entry, position, column, byte)) {
        walk.matchCount = 0;
        return keyTestFailed;
      }
      ++walk.matchCount;
    } else if ((entry.flags & column_flag::term) != 0) {
      evaluateTermsAt(walk.comparison, walk.results, position, column);
    }
    if ((entry.flags & column_flag::key) != 0) {
      if ((entry.flags & column_flag::upperCase) != 0) byte = toUpper(byte);
      ++walk.next;
      return entry.keyPosition;
    }
  }
}

std::int32_t padKeyByte(ColumnWalk& walk, const std::uint8_t* position, std::uint32_t column, std::uint8_t byte) {
  for (;; ++walk.next) {
    const ColumnEntry& entry = *walk.next;
    if (entry.keyPosition == ColumnEntry::endOfTable) return keyTableEnd;
    if ((entry.flags & column_flag::condition) != 0) {
      if (!conditionHolds(walk, entry, position, column, byte)) {
        walk.matchCount = 0;
        return keyTableEnd;
      }
      ++walk.matchCount;
    }
    if ((entry.flags & column_flag::key) != 0) {
      ++walk.next;
      return entry.keyPosition;
    }
  }
}

std::uint32_t walkColumns(const KeyColumns& keys, const RecordComparison& comparison, const RecordBytes& record,
                          std::uint8_t* key) {
  ColumnWalk walk{comparison, keys.table.data()};
  ColumnPosition place(record, comparison.expandTabs);
  std::uint32_t column = 0;
  while (place.moveTo(column)) {
    std::uint8_t byte = place.insideTab ? padding : *place.at;
    const std::int32_t keyPosition = extractKeyByte(walk, place.at, column, byte);
    if (keyPosition == keyTableEnd || keyPosition == keyTestFailed) return walk.matchCount;
    if (keyPosition >= 0) {
      key[keyPosition] = byte;
      ++column;
    } else {
      column += static_cast<std::uint32_t>(keyGap - keyPosition);
    }
  }
  padKey(walk, record, place.column, key);
  return walk.matchCount;
}

std::uint32_t expandedColumns(const RecordBytes& record, std::uint32_t before) {
  std::uint32_t column = before;
  const std::uint8_t* at = record.begin;
  for (;;) {
    const std::uint8_t* const tab = findTab(at, record.end);
    column += static_cast<std::uint32_t>(tab - at);
    if (tab == record.end) return column;
    column += tabWidth - column % tabWidth;
    at = tab + 1;
  }
}

KeyPlan makeKeyPlan(const KeyColumns& keys) {
  KeyPlan plan;
  plan.keyLength = keys.keyLength;
  plan.upperCase = keys.upperCase;
  std::uint32_t keyPosition = 0;
  for (std::uint32_t i = 0; i < keys.specCount; ++i) {
    const auto written = static_cast<std::int16_t>(static_cast<std::uint16_t>(keys.specs[i].length));
    const bool reversed = written <= 0;  // last - first + 1, and a single column gives 1
    const auto length = static_cast<std::uint32_t>(reversed ? 2 - written : written);
    plan.ranges[plan.rangeCount++] = {keys.specs[i].start, keyPosition, length, reversed};
    keyPosition += length;
  }
  std::uint32_t evaluations = 0;
  for (std::uint32_t i = 0; i < keys.entryCount; ++i) {
    const ColumnEntry& entry = keys.table[i];
    const bool tests = (entry.flags & column_flag::condition) != 0;
    if (tests && (entry.flags & column_flag::term) != 0) ++evaluations;
    plan.columnsNeeded = std::max(plan.columnsNeeded, entry.column + 1U);
    if ((entry.flags & column_flag::term) != 0) plan.hasExpression = true;
    if (tests) plan.conditions[plan.conditionCount++] = entry;
  }
  plan.walkOnly = evaluations > 1;
  return plan;
}

RecordBytes expandTabs(const KeyPlan& plan, const RecordBytes& record, std::uint8_t* expanded) {
  std::uint32_t column = 0;
  const std::uint8_t* at = record.begin;
  while (at < record.end && column < plan.columnsNeeded) {
    const std::uint8_t* const tab = findTab(at, record.end);
    const std::uint32_t length = std::min(static_cast<std::uint32_t>(tab - at), plan.columnsNeeded - column);
    std::memcpy(expanded + column, at, length);
    column += length;
    if (tab == record.end || column == plan.columnsNeeded) break;
    const std::uint32_t width = std::min(tabWidth - column % tabWidth, plan.columnsNeeded - column);
    std::memset(expanded + column, padding, width);
    column += width;
    at = tab + 1;
  }
  return {expanded, expanded + column};
}

bool meetsConditions(const KeyPlan& plan, const RecordComparison& comparison, const RecordBytes& record) {
  for (std::uint32_t i = 0; i < plan.conditionCount; ++i) {
    if (!plainConditionHolds(comparison, plan.conditions[i], record)) return false;
  }
  return plan.conditionCount == comparison.selection.optionCount;
}

void copyKeyRanges(const KeyPlan& plan, const RecordBytes& record, std::uint8_t* key) {
  for (std::uint32_t i = 0; i < plan.rangeCount; ++i) {
    copyRange(plan.ranges[i], record, key + plan.ranges[i].keyPosition);
  }
  if (plan.upperCase) copyFolded(key, key, plan.keyLength);
}

}  // namespace tarnvale
