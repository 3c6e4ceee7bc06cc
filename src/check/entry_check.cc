#include "check/entry_check.h"

#include <cinttypes>
#include <cstring>

namespace tarnvale {

namespace {

std::uint32_t markLength(const IsiHeader& header) {
  if ((header.recordFlags & record_flag::binary) != 0) return 0;
  return (header.recordFlags & record_flag::eorTwoBytes) != 0 ? 2 : 1;
}

// `number` is what the entry before should have among equal keys, and becomes that of this one.
void checkOrder(const IsiHandle& index, const EntryRules& rules, const FoundEntry& before, const FoundEntry& entry,
                std::uint16_t& number, Report& report) {
  const int order = std::memcmp(entry.key(), before.key(), index.keyLength);
  number = static_cast<std::uint16_t>(order == 0 ? number + 1 : 0);
  if (order < 0 || (order == 0 && lfaOf(index, entry) <= lfaOf(index, before))) {
    report.addAt(placeOf(index, entry), "the entry sorts before the one in front of it");
  } else if (order == 0 && !rules.equalKeys) {
    report.addAt(placeOf(index, entry), "the entry before has the same key, which the options rule out");
  }
}

void checkPlace(const IsiHandle& index, const EntryRules& rules, const FoundEntry& entry, PositionSet& used,
                Report& report) {
  const std::uint32_t position = entry.head().position;
  const std::uint32_t length = entry.head().recordLength;
  if (position >= rules.positions) {
    report.addAt(placeOf(index, entry), "its position %" PRIu32 " lies behind the data extent", position);
  } else if (used.add(position)) {
    report.addAt(placeOf(index, entry), "its position %" PRIu32 " is used twice", position);
  }
  if (length < rules.shortestRecord || length > rules.longestRecord) {
    report.addAt(placeOf(index, entry), "the record length is %" PRIu32 " instead of %s%" PRIu32, length,
                 rules.shortestRecord < rules.longestRecord ? "up to " : "", rules.longestRecord);
  }
}

}  // namespace

// The last record of a text file may lack its mark: then the extent, which counts whole places, leaves it out.
EntryRules makeEntryRules(const IsiHeader& header, const Settings* settings) {
  const bool variable = (header.recordFlags & record_flag::byOffset) != 0;
  const bool compressed = (header.recordFlags & record_flag::spaceCompressed) != 0;
  const bool marked = (header.recordFlags & record_flag::binary) == 0;
  const std::uint32_t mark = markLength(header);
  // Options f and g together: the records end with a mark if the data file has any.
  const std::uint32_t leastMark = settings != nullptr && settings->markless ? 0 : mark;
  EntryRules rules;
  rules.equalKeys =
      (header.recordFlags & record_flag::noDuplicates) == 0 && (settings == nullptr || !settings->ignoreDuplicates);
  rules.positions = std::uint64_t{header.dataExtent} + (marked && !variable ? 1 : 0);
  rules.longestRecord = compressed ? maxRecordSize : header.recordLength + mark;  // its limit counts columns
  rules.shortestRecord = variable ? mark : header.recordLength + leastMark;
  return rules;
}

void checkEntries(const IsiHandle& index, const EntryRules& rules, TreeWalk& walk, PositionSet& used, Report& report,
                  ProgressLine& progress) {
  FoundEntry before;
  FoundEntry entry;
  std::uint16_t number = 0;
  for (bool first = true; walk.next(entry); first = false) {
    if (!first) checkOrder(index, rules, before, entry, number, report);
    if (entry.head().duplicateNumber != number) {
      report.addAt(placeOf(index, entry), "the duplicate number is %u instead of %u",
                   unsigned{entry.head().duplicateNumber}, unsigned{number});
    }
    checkPlace(index, rules, entry, used, report);
    before = entry;
    progress.count("entries", walk.entryCount(), index.area.header.recordCount);
  }
}

}  // namespace tarnvale
