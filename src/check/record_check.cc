#include "check/record_check.h"

#include <cstring>
#include <span>

#include "isi/index_build.h"

namespace tarnvale {

RecordCheck::RecordCheck(const Settings& settings, const Scanner& scanner, const IsiHandle& index, TreeWalk& walk,
                         Report& report)
    : settings_(settings),
      index_(index),
      report_(report),
      entries_([&walk](FoundEntry& entry) { return walk.next(entry); }),
      recordLimit_(scanner.recordLimit),
      findings_(scanner.findings.format) {}

std::uint32_t RecordCheck::positionOf(const std::uint8_t* sortEntry) const {
  const std::uint64_t lfa = entryLfa(sortEntry);
  return static_cast<std::uint32_t>(index_.recordNumbers ? lfa / entryRecordLength(sortEntry) : lfa);
}

void RecordCheck::noteLength(std::uint32_t length) {
  if (length == recordLimit_) return;
  findings_.variableLength = true;
  if (length > recordLimit_) findings_.overlongRecord = true;
}

// Counts and numbers the records of equal keys as a build does; true for one that it leaves out.
bool RecordCheck::isDropped(const std::uint8_t* sortEntry) {
  const bool first = recordCount_++ == 0;
  const bool duplicate = !first && std::memcmp(key_.data(), entryKey(sortEntry), index_.keyLength) == 0;
  if (duplicate && settings_.ignoreDuplicates) return true;
  if (duplicate) ++duplicates_.duplicates;
  duplicateNumber_ = static_cast<std::uint16_t>(duplicate ? duplicateNumber_ + 1 : 0);
  std::memcpy(key_.data(), entryKey(sortEntry), index_.keyLength);
  return false;
}

void RecordCheck::take(const std::uint8_t* sortEntry) {
  noteLength(entryRecordLength(sortEntry));
  if (isDropped(sortEntry)) return;
  const std::uint32_t position = positionOf(sortEntry);
  const auto order = [&](const FoundEntry& found) {
    if (found.head().position == position) return 0;
    const int keyOrder = std::memcmp(found.key(), entryKey(sortEntry), index_.keyLength);
    return keyOrder != 0 ? keyOrder : found.head().position < position ? -1 : 1;
  };
  const FoundEntry* const found = entries_.find(order, [this](const FoundEntry& surplus) { addSurplus(surplus); });
  if (found != nullptr) {
    compare(sortEntry, *found);
    lastNode_ = found->node;
  } else {
    report_.addAt({{entryKey(sortEntry), index_.keyLength}, entryLfa(sortEntry), lastNode_},
                  "the record has no entry, or not in this place");
  }
}

void RecordCheck::compare(const std::uint8_t* sortEntry, const FoundEntry& found) {
  const EntryPlace place = placeOf(index_, found);
  const IsiEntryHead& head = found.head();
  const std::span<const std::uint8_t> key(entryKey(sortEntry), index_.keyLength);
  if (std::memcmp(found.key(), key.data(), key.size()) != 0) {
    report_.addAt(place, "the key of the record is \"%s\"", escapedText(key).c_str());
  }
  if (head.recordLength != entryRecordLength(sortEntry)) {
    report_.addAt(place, "the record length is %u instead of %u", unsigned{head.recordLength},
                  unsigned{entryRecordLength(sortEntry)});
  }
  if (head.duplicateNumber != duplicateNumber_) {
    report_.addAt(place, "the duplicate number is %u instead of %u", unsigned{head.duplicateNumber},
                  unsigned{duplicateNumber_});
  }
}

void RecordCheck::addSurplus(const FoundEntry& found) {
  report_.addAt(placeOf(index_, found), "no record belongs to the entry, or not in this place");
}

void RecordCheck::finish() {
  entries_.finish([this](const FoundEntry& found) { addSurplus(found); });
}

bool RecordCheck::inDeclaredFormat() const { return isInDeclaredFormat(settings_, findings_, duplicates_); }

}  // namespace tarnvale
