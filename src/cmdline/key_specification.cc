#include "cmdline/key_specification.h"

#include <algorithm>
#include <span>

#include "common/output.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t maxColumnValue = 65535;  // less the end-of-record mark

std::span<ColumnEntry> columnEntries(RunContext& run) { return {run.columnTable.data(), run.columnEntryCount}; }

StatusCode storeKeySpec(RunContext& run, std::uint32_t start, std::uint32_t end) {
  if (run.keySpecCount == maxKeySpecs) return status::tooManyKeySpecs;
  KeySpec& spec = run.keySpecs[run.keySpecCount++];
  spec.start = static_cast<std::uint16_t>(start - 1);
  spec.length = static_cast<std::uint16_t>(end - start + 1);
  return status::success;
}

struct FlagText {
  std::uint16_t flag;
  const char* text;
};
constexpr FlagText flagTexts[] = {{column_flag::key, "  Key;"},
                                  {column_flag::notEqual, "  != match;"},
                                  {column_flag::equal, "  = match;"},
                                  {column_flag::term, "  extended;"},
                                  {column_flag::upperCase, "  Upper Case;"}};

}  // namespace

StatusCode addKeyDigit(const RunContext& run, PendingKeySpec& pending, std::uint32_t digit) {
  std::uint32_t& column = pending.dashSeen ? pending.end : pending.start;
  column = column * 10 + digit;
  pending.digitSeen = true;
  return column > maxColumnValue - run.eorLength ? status::keyColumnTooLarge : status::success;
}

StatusCode completeKeySpec(RunContext& run, PendingKeySpec& pending) {
  if (!pending.digitSeen && !pending.dashSeen) return status::success;
  const std::uint32_t start = pending.start;
  const std::uint32_t end = pending.end != 0 ? pending.end : start;
  pending = {};
  if (start == 0) return status::invalidKeySyntax;
  switch (addKeyRange(run, start, end)) {
    case KeyRangeResult::overlap:
      return status::overlappingKeys;
    case KeyRangeResult::tableFull:
      return status::tooManyKeyBytes;
    case KeyRangeResult::added:
      break;
  }
  return storeKeySpec(run, start, end);
}

ColumnEntry& findOrAddColumn(RunContext& run, std::uint16_t column) {
  const auto entries = columnEntries(run);
  const auto found = std::ranges::find(entries, column, &ColumnEntry::column);
  if (found != entries.end()) return *found;
  ColumnEntry& added = run.columnTable[run.columnEntryCount++];
  added = {};
  added.column = column;
  return added;
}

KeyRangeResult addKeyRange(RunContext& run, std::uint32_t first, std::uint32_t last) {
  const bool upwards = first <= last;
  for (std::uint32_t column = first;; upwards ? ++column : --column) {
    ColumnEntry& entry = findOrAddColumn(run, static_cast<std::uint16_t>(column - 1));
    if ((entry.flags & column_flag::key) != 0) return KeyRangeResult::overlap;
    if (run.columnEntryCount > maxColumnEntries) return KeyRangeResult::tableFull;
    entry.keyPosition = static_cast<std::uint16_t>(run.keyLength++);
    entry.flags |= column_flag::key;
    if (run.upperCaseKeys) entry.flags |= column_flag::upperCase;
    if (column == last) return KeyRangeResult::added;
  }
}

void closeColumnTable(RunContext& run) {
  run.columnTable[run.columnEntryCount].keyPosition = ColumnEntry::endOfTable;
  std::ranges::sort(columnEntries(run), {}, &ColumnEntry::column);
}

void displayColumnTable(RunContext& run) {
  PutMessage(run, "  Col   Pos Char  Other\n");
  for (const ColumnEntry& entry : columnEntries(run)) {
    const bool isKey = (entry.flags & column_flag::key) != 0;
    putFormatted(run, "%5d %5d", entry.column + 1, isKey ? entry.keyPosition + 1 : 0);
    if (entry.matchChar != 0) {
      putFormatted(run, "  '%c'", entry.matchChar);
    } else {
      PutMessage(run, "     ");
    }
    for (const FlagText& row : flagTexts) {
      if ((entry.flags & row.flag) != 0) PutMessage(run, row.text);
    }
    PutMessage(run, "\n");
  }
}

}  // namespace tarnvale
