// The entries of an index, held against the records: against the sorted entries that a build would put into the tree,
// or, without the data file, against one another.
#pragma once

#include <array>
#include <cstdint>

#include "check/found_sequence.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "common/run_context.h"

namespace tarnvale {

class RecordCheck {
 public:
  /// The run's scan has ended. All must stay.
  RecordCheck(RunContext& run, const IsiHandle& index, TreeWalk& walk, Report& report);

  /// Looks up the record of the next sort entry.
  void take(const std::uint8_t* sortEntry);
  /// All records have come: what is left in the index belongs to none.
  void finish();

 private:
  [[nodiscard]] bool isDropped(const std::uint8_t* sortEntry);
  void compare(const std::uint8_t* sortEntry, const FoundEntry& found);
  void addSurplus(const FoundEntry& found);
  [[nodiscard]] std::uint32_t positionOf(const std::uint8_t* sortEntry) const;

  RunContext& run_;
  const IsiHandle& index_;
  Report& report_;
  FoundSequence<FoundEntry> entries_;
  std::uint64_t lastNode_ = rootOffset / nodeSize;  // of the entry found last
  std::int32_t recordLength_;                       // as the scan found it
  bool anyTaken_ = false;
  std::uint16_t duplicateNumber_ = 0;  // of the record taken last
  std::array<std::uint8_t, maxKeyLength> key_{};
};

/// Walks all entries and holds each against the one before: ascending keys, equal keys numbered.
void checkOrder(const IsiHandle& index, TreeWalk& walk, Report& report);

}  // namespace tarnvale
