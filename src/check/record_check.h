// The entries of an index, compared with the records: with the sorted entries that a build would put into the tree.
#pragma once

#include <array>
#include <cstdint>

#include "check/found_sequence.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "cmdline/settings.h"
#include "data/record_scan.h"
#include "isi/duplicate_list.h"

namespace tarnvale {

class RecordCheck {
 public:
  /// The scan has ended. All must stay.
  RecordCheck(const Settings& settings, const Scanner& scanner, const IsiHandle& index, TreeWalk& walk, Report& report);

  /// Looks up the record of the next sort entry.
  void take(const std::uint8_t* sortEntry);
  /// All records have come: what is left in the index belongs to none.
  void finish();
  /// False when a build would refuse these records.
  [[nodiscard]] bool inDeclaredFormat() const;
  [[nodiscard]] std::uint64_t recordCount() const { return recordCount_; }  // taken so far

 private:
  [[nodiscard]] bool isDropped(const std::uint8_t* sortEntry);
  void noteLength(std::uint32_t length);
  void compare(const std::uint8_t* sortEntry, const FoundEntry& found);
  void addSurplus(const FoundEntry& found);
  [[nodiscard]] std::uint32_t positionOf(const std::uint8_t* sortEntry) const;

  const Settings& settings_;
  const IsiHandle& index_;
  Report& report_;
  FoundSequence<FoundEntry> entries_;
  std::uint64_t lastNode_ = rootOffset / nodeSize;  // of the entry found last
  std::uint32_t recordLimit_;                       // as the scan found it
  FormatFindings findings_;                         // those of the scan, and what the lengths of the entries add
  DuplicateList duplicates_;
  std::uint64_t recordCount_ = 0;
  std::uint16_t duplicateNumber_ = 0;  // of the record taken last
  std::array<std::uint8_t, maxKeyLength> key_{};
};

}  // namespace tarnvale
