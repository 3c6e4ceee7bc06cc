#include "cmdline/key_specification.h"

#include <algorithm>
#include <span>

namespace tarnvale {

namespace {

std::span<ColumnEntry> columnEntries(KeyColumns& keys) { return {keys.table.data(), keys.entryCount}; }

StatusCode storeKeySpec(KeyColumns& keys, std::uint32_t start, std::uint32_t end) {
  if (keys.specCount == maxKeySpecs) return status::tooManyKeySpecs;
  KeySpec& spec = keys.specs[keys.specCount++];
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

StatusCode addKeyDigit(PendingKeySpec& pending, std::uint32_t digit, std::uint32_t maxColumn) {
  std::uint32_t& column = pending.dashSeen ? pending.end : pending.start;
  column = column * 10 + digit;
  pending.digitSeen = true;
  return column > maxColumn ? status::keyColumnTooLarge : status::success;
}

StatusCode completeKeySpec(KeyColumns& keys, PendingKeySpec& pending) {
  if (!pending.digitSeen && !pending.dashSeen) return status::success;
  const std::uint32_t start = pending.start;
  const std::uint32_t end = pending.end != 0 ? pending.end : start;
  pending = {};
  if (start == 0) return status::invalidKeySyntax;
  switch (addKeyRange(keys, start, end)) {
    case KeyRangeResult::overlap:
      return status::overlappingKeys;
    case KeyRangeResult::tableFull:
      return status::tooManyKeyBytes;
    case KeyRangeResult::added:
      break;
  }
  return storeKeySpec(keys, start, end);
}

ColumnEntry& findOrAddColumn(KeyColumns& keys, std::uint16_t column) {
  const auto entries = columnEntries(keys);
  const auto found = std::ranges::find(entries, column, &ColumnEntry::column);
  if (found != entries.end()) return *found;
  ColumnEntry& added = keys.table[keys.entryCount++];
  added = {};
  added.column = column;
  return added;
}

KeyRangeResult addKeyRange(KeyColumns& keys, std::uint32_t first, std::uint32_t last) {
  const bool upwards = first <= last;
  for (std::uint32_t column = first;; upwards ? ++column : --column) {
    ColumnEntry& entry = findOrAddColumn(keys, static_cast<std::uint16_t>(column - 1));
    if ((entry.flags & column_flag::key) != 0) return KeyRangeResult::overlap;
    if (keys.entryCount > maxColumnEntries) return KeyRangeResult::tableFull;
    entry.keyPosition = static_cast<std::uint16_t>(keys.keyLength++);
    entry.flags |= column_flag::key;
    if (keys.upperCase) entry.flags |= column_flag::upperCase;
    if (column == last) return KeyRangeResult::added;
  }
}

void closeColumnTable(KeyColumns& keys) {
  keys.table[keys.entryCount].keyPosition = ColumnEntry::endOfTable;
  std::ranges::sort(columnEntries(keys), {}, &ColumnEntry::column);
}

void displayColumnTable(Messages& messages, const KeyColumns& keys) {
  putMessage(messages, "  Col   Pos Char  Other\n");
  for (const ColumnEntry& entry : std::span(keys.table.data(), keys.entryCount)) {
    const bool isKey = (entry.flags & column_flag::key) != 0;
    putFormatted(messages, "%5d %5d", entry.column + 1, isKey ? entry.keyPosition + 1 : 0);
    if (entry.matchChar != 0) {
      putFormatted(messages, "  '%c'", entry.matchChar);
    } else {
      putMessage(messages, "     ");
    }
    for (const FlagText& row : flagTexts) {
      if ((entry.flags & row.flag) != 0) putMessage(messages, row.text);
    }
    putMessage(messages, "\n");
  }
}

}  // namespace tarnvale
