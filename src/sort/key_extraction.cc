#include "sort/key_extraction.h"

#include <algorithm>
#include <cstring>

#include "sort/selection.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t tabWidth = 8;
constexpr std::uint8_t padding = ' ';

std::uint8_t toUpper(std::uint8_t byte) {
  return byte >= 'a' && byte <= 'z' ? static_cast<std::uint8_t>(byte - ('a' - 'A')) : byte;
}

const std::uint8_t* findTab(const std::uint8_t* from, const std::uint8_t* end) {
  const void* const tab = std::memchr(from, '\t', static_cast<std::size_t>(end - from));
  return tab != nullptr ? static_cast<const std::uint8_t*>(tab) : end;
}

// Folds a-z to A-Z, eight bytes at a time: the highest bit of each byte tells whether it is one of them. The last eight
// bytes may be folded twice, which changes nothing.
void foldToUpper(std::uint8_t* key, std::size_t length) {
  constexpr std::uint64_t each = 0x0101010101010101;
  constexpr std::size_t step = sizeof(std::uint64_t);
  const auto foldEight = [](std::uint8_t* bytes) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes, step);
    const std::uint64_t low = eight & 0x7F * each;
    const std::uint64_t fromA = low + (0x80 - 'a') * each;
    const std::uint64_t beyondZ = low + (0x7F - 'z') * each;
    const std::uint64_t letters = ~eight & (fromA ^ beyondZ) & 0x80 * each;
    eight -= letters >> 2;
    std::memcpy(bytes, &eight, step);
  };
  if (length < step) {
    std::transform(key, key + length, key, toUpper);
    return;
  }
  for (std::size_t i = 0; i + step < length; i += step) foldEight(key + i);
  foldEight(key + length - step);
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
void padKey(RunContext& run, const RecordBytes& record, std::uint32_t column, std::uint8_t* key) {
  for (;; ++column) {
    const std::int32_t place = PadKeyByte(run, record.end, column, padding);
    if (place < 0) return;
    key[place] = padding;
  }
}

bool plainConditionHolds(const RunContext& run, const ColumnEntry& entry, const RecordBytes& record) {
  const bool wantsEqual = (entry.flags & column_flag::equal) != 0;
  if ((entry.flags & column_flag::term) != 0) return expressionHoldsFor(run, record.begin) == wantsEqual;
  const std::uint8_t byte = entry.column < record.size() ? record.begin[entry.column] : padding;
  return (byte == entry.matchChar) == wantsEqual;
}

void copyRange(const KeyPlan::Range& range, const RecordBytes& record, std::uint8_t* key) {
  const std::uint32_t size = record.size();
  if (!range.reversed) {
    const std::uint32_t present = size > range.column ? std::min(range.length, size - range.column) : 0;
    if (present > 0) std::memcpy(key, record.begin + range.column, present);
    if (present < range.length) std::memset(key + present, padding, range.length - present);
    return;
  }
  for (std::uint32_t i = 0; i < range.length; ++i) {
    const std::uint32_t column = range.column - i;
    key[i] = column < size ? record.begin[column] : padding;
  }
}

}  // namespace

std::int32_t ExtractKeyByte(RunContext& run, const std::uint8_t* position, std::uint32_t column, std::uint8_t& byte) {
  for (;; ++run.columnCursor) {
    const ColumnEntry& entry = *run.columnCursor;
    if (entry.keyPosition == ColumnEntry::endOfTable) return keyTableEnd;
    if (entry.column > column) return keyGap - static_cast<std::int32_t>(entry.column - column);
    if (entry.column < column) continue;
    if ((entry.flags & column_flag::condition) != 0) {
      if (!conditionHolds(run, entry, position, column, byte)) {
        run.matchCount = 0;
        return keyTestFailed;
      }
      ++run.matchCount;
    } else if ((entry.flags & column_flag::term) != 0) {
      evaluateTermsAt(run, position, column);
    }
    if ((entry.flags & column_flag::key) != 0) {
      if ((entry.flags & column_flag::upperCase) != 0) byte = toUpper(byte);
      ++run.columnCursor;
      return entry.keyPosition;
    }
  }
}

std::int32_t PadKeyByte(RunContext& run, const std::uint8_t* position, std::uint32_t column, std::uint8_t byte) {
  for (;; ++run.columnCursor) {
    const ColumnEntry& entry = *run.columnCursor;
    if (entry.keyPosition == ColumnEntry::endOfTable) return keyTableEnd;
    if ((entry.flags & column_flag::condition) != 0) {
      if (!conditionHolds(run, entry, position, column, byte)) {
        run.matchCount = 0;
        return keyTableEnd;
      }
      ++run.matchCount;
    }
    if ((entry.flags & column_flag::key) != 0) {
      ++run.columnCursor;
      return entry.keyPosition;
    }
  }
}

void walkColumns(RunContext& run, const RecordBytes& record, bool expandTabs, std::uint8_t* key) {
  run.columnCursor = run.columnTable.data();
  run.matchCount = 0;
  forgetTermResults(run);
  ColumnPosition walk(record, expandTabs);
  std::uint32_t column = 0;
  while (walk.moveTo(column)) {
    std::uint8_t byte = walk.insideTab ? padding : *walk.at;
    const std::int32_t place = ExtractKeyByte(run, walk.at, column, byte);
    if (place == keyTableEnd || place == keyTestFailed) return;
    if (place >= 0) {
      key[place] = byte;
      ++column;
    } else {
      column += static_cast<std::uint32_t>(keyGap - place);
    }
  }
  padKey(run, record, walk.column, key);
}

std::uint32_t expandedColumns(const RecordBytes& record) {
  std::uint32_t column = 0;
  const std::uint8_t* at = record.begin;
  for (;;) {
    const std::uint8_t* const tab = findTab(at, record.end);
    column += static_cast<std::uint32_t>(tab - at);
    if (tab == record.end) return column;
    column += tabWidth - column % tabWidth;
    at = tab + 1;
  }
}

KeyPlan makeKeyPlan(const RunContext& run) {
  KeyPlan plan;
  plan.upperCase = run.upperCaseKeys;
  std::uint32_t keyPosition = 0;
  for (std::uint32_t i = 0; i < run.keySpecCount; ++i) {
    const auto written = static_cast<std::int16_t>(static_cast<std::uint16_t>(run.keySpecs[i].length));
    const bool reversed = written <= 0;  // last - first + 1, and a single column gives 1
    const auto length = static_cast<std::uint32_t>(reversed ? 2 - written : written);
    plan.ranges[plan.rangeCount++] = {run.keySpecs[i].start, keyPosition, length, reversed};
    keyPosition += length;
  }
  for (std::uint32_t i = 0; i < run.columnEntryCount; ++i) {
    const ColumnEntry& entry = run.columnTable[i];
    plan.columnsNeeded = std::max(plan.columnsNeeded, entry.column + 1U);
    if ((entry.flags & column_flag::term) != 0) plan.hasExpression = true;
    if ((entry.flags & column_flag::condition) != 0) plan.conditions[plan.conditionCount++] = entry;
  }
  return plan;
}

RecordBytes expandTabs(const KeyPlan& plan, const RecordBytes& record) {
  static std::array<std::uint8_t, 65536> expanded;
  std::uint32_t column = 0;
  const std::uint8_t* at = record.begin;
  while (at < record.end && column < plan.columnsNeeded) {
    const std::uint8_t* const tab = findTab(at, record.end);
    const std::uint32_t length = std::min(static_cast<std::uint32_t>(tab - at), plan.columnsNeeded - column);
    std::memcpy(expanded.data() + column, at, length);
    column += length;
    if (tab == record.end || column == plan.columnsNeeded) break;
    const std::uint32_t width = std::min(tabWidth - column % tabWidth, plan.columnsNeeded - column);
    std::memset(expanded.data() + column, padding, width);
    column += width;
    at = tab + 1;
  }
  return {expanded.data(), expanded.data() + column};
}

void copyKeyRanges(RunContext& run, const KeyPlan& plan, const RecordBytes& record, std::uint8_t* key) {
  run.matchCount = 0;
  for (std::uint32_t i = 0; i < plan.conditionCount; ++i) {
    const ColumnEntry& entry = plan.conditions[i];
    if (!plainConditionHolds(run, entry, record)) {
      run.matchCount = 0;
      return;
    }
    ++run.matchCount;
  }
  for (std::uint32_t i = 0; i < plan.rangeCount; ++i) {
    copyRange(plan.ranges[i], record, key + plan.ranges[i].keyPosition);
  }
  if (plan.upperCase) foldToUpper(key, run.sortKeyLength);
}

}  // namespace tarnvale
