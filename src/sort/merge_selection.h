// The smallest head of a group of trains: a tree of losers.
//
// Each inner node of the tree keeps the head that lost there; the winner is outside. When the winner's train moves on,
// its new head plays against the losers on one path to the top, one comparison a level. Four trains, heads 3 7 5 4:
//
//        3 wins            3 goes, 9 comes:       9 plays 7, loses: 7 goes up
//        (4)               plays on its path      7 plays 4, loses: 4 wins
//       /   \.
//     (7)   (5)
//     3 7   5 4
//
// A head is one number: 59 bits of its key, taken where the keys of the run begin to differ, and 5 bits for its slot.
// So a comparison is one of numbers, and entries are compared only when the key bits are equal. The end marker of a
// train sorts after every entry.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

inline constexpr std::size_t maxFanIn = 30;  // trains merged at a time; a slot number has 5 bits

/// One input train of a merge group.
struct MergeSlot {
  const std::uint8_t* cursor = nullptr;  // the head entry, inside the block
  std::uint8_t* blockStart = nullptr;    // the slot's part of the sort area
  std::uint64_t nextReadOffset = 0;      // work-file offset of the train's next block
  std::uint32_t entriesLeft = 0;         // entries of the block not yet consumed, the head included
};

/// A group of trains that are merged into one.
struct MergeGroup {
  using Head = std::uint64_t;
  static constexpr Head slotMask = 31;

  std::array<MergeSlot, maxFanIn> slots{};
  std::size_t count = 0;          // slots filled
  std::uint32_t keyLength = 0;    // bytes of a key
  std::uint32_t prefixStart = 0;  // where the prefix begins in the entry
  std::uint64_t prefixMask = 0;   // the bits of it that belong to the key
  bool started = false;           // the tree is made by the first selection
  Head winner = 0;
  std::array<Head, maxFanIn> losers{};  // node 1 is the top; node 0 is not used
};

/// An empty group for the keys of the run.
[[nodiscard]] MergeGroup makeMergeGroup(const RunContext& run);

/// The index of the slot whose head entry is smallest. Between two calls only the slot named last may have moved on.
[[nodiscard]] std::size_t SelectNextMergeEntry(MergeGroup& group);

}  // namespace tarnvale
