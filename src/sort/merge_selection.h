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
//
// What the processor guesses wrong or waits for is what takes the time. So all paths are equally long: the tree has a
// power of two of leaves, and those without a slot hold the head `noHead`, which loses to all. And the head that
// follows in each slot is at hand before it is asked for.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "format/sort_entry.h"
#include "sort/key_prefix.h"

namespace tarnvale {

inline constexpr std::size_t maxFanIn = 30;  // trains merged at a time; a slot number has 5 bits

/// One input train of a merge group.
struct MergeSlot {
  const std::uint8_t* cursor = nullptr;    // the head entry, inside the block
  const std::uint8_t* blockEnd = nullptr;  // behind the block's last whole entry
  std::uint8_t* part = nullptr;            // the slot's part of the sort area
  std::uint64_t nextReadOffset = 0;        // work-file offset of the train's next block
};

/// Where the bits of a head stand in an entry, the same for all entries of a run.
struct HeadShape {
  std::uint32_t keyLength = 0;    // bytes of a key
  std::uint32_t entrySize = 0;    // bytes
  std::uint32_t prefixStart = 0;  // where the prefix begins in the entry
  std::uint64_t prefixMask = 0;   // the bits of it that belong to the key, without those of the slot number
  bool wholeKey = false;          // heads tell all that the keys differ in
};

/// The shape for keys of which the first `sharedLength` bytes are the same in the whole run.
[[nodiscard]] HeadShape makeHeadShape(std::uint32_t keyLength, std::uint32_t sharedLength);

/// The smallest head of a group of trains.
class LoserTree {
 public:
  using Head = std::uint64_t;

  /// Plays the heads of the first `count` slots, 1 to 30, which must stay where they are, as must the array.
  LoserTree(const MergeSlot* slots, std::size_t count, const HeadShape& shape)
      : slots_(slots), leaves_(std::bit_ceil(count)), shape_(shape) {
    std::array<Head, 2 * maxLeaves> winners{};
    for (std::size_t i = 0; i < leaves_; ++i) winners[leaves_ + i] = noHead;
    for (std::size_t i = 0; i < count; ++i) {
      winners[leaves_ + i] = headOf(i, slots_[i].cursor);
      prepareFollowing(i);
    }
    for (std::size_t node = leaves_ - 1; node >= 1; --node) {
      winners[node] = winners[2 * node];
      losers_[node] = winners[2 * node + 1];
      if (losers_[node] != noHead) play(winners[node], losers_[node]);
    }
    winner_ = winners[1];
  }

  /// The slot whose head entry is smallest.
  [[nodiscard]] std::size_t winner() const { return slotOf(winner_); }

  /// True when the winner may be an end marker: its key bits are all ones.
  [[nodiscard]] bool mayHaveEnded() const { return winner_ >= shape_.prefixMask; }

  /// The winner's slot has moved on to its next entry, and where that begins a block, changeBlock was called: plays it
  /// on its path to the top. The new winner's slot.
  std::size_t selectNextMergeEntry() {
    const std::size_t moved = slotOf(winner_);
    Head winner = following_[moved];
    prepareFollowing(moved);
    for (std::size_t node = (leaves_ + moved) / 2; node >= 1; node /= 2) play(winner, losers_[node]);
    winner_ = winner;
    return slotOf(winner);
  }

  /// The smallest head besides the winner's. There must be two slots.
  [[nodiscard]] Head runnerUp() const {
    Head smallest = noHead;
    for (std::size_t node = (leaves_ + slotOf(winner_)) / 2; node >= 1; node /= 2) {
      Head loser = losers_[node];
      if (loser != noHead) play(smallest, loser);
    }
    return smallest;
  }

  /// The winner's slot has moved on as above: true, and its new entry is the winner, when it sorts before the head of
  /// `runnerUp`. Otherwise nothing is changed.
  bool staysWinner(Head runnerUp) {
    const std::size_t slot = slotOf(winner_);
    const Head head = following_[slot];
    if (!sortsBefore(head, runnerUp)) return false;
    prepareFollowing(slot);
    winner_ = head;
    return true;
  }

  /// The winner's slot has got another block, and its cursor stands at the first entry.
  void changeBlock() {
    const std::size_t slot = slotOf(winner_);
    following_[slot] = headOf(slot, slots_[slot].cursor);
  }

 private:
  static constexpr Head slotMask = 31;
  static constexpr Head noHead = ~Head{0};
  static constexpr std::size_t maxLeaves = slotMask + 1;
  static_assert(maxFanIn < maxLeaves);  // so that no slot has the number in noHead

  static std::size_t slotOf(Head head) { return head & slotMask; }

  // Behind the last entry of a block stand bytes without a meaning; changeBlock will put the right head in their place.
  void prepareFollowing(std::size_t slot) { following_[slot] = headOf(slot, slots_[slot].cursor + shape_.entrySize); }

  [[nodiscard]] Head headOf(std::size_t slot, const std::uint8_t* entry) const {
    const std::uint64_t prefix = isEndMarker(entry) ? ~std::uint64_t{0} : loadKeyPrefix(entry + shape_.prefixStart);
    return (prefix & shape_.prefixMask) | slot;
  }

  // Leaves the smaller of the two in `winner` and the other in `loser`. There is no branch on their order: it is as
  // good as random, and a wrong guess costs more than the exchange.
  void play(Head& winner, Head& loser) const {
    const Head a = winner;
    const Head b = loser;
    if ((a ^ b) <= slotMask) [[unlikely]] {
      winner = sortsBefore(b, a) ? b : a;
      loser = a ^ b ^ winner;
      return;
    }
    winner = __builtin_expect_with_probability(b < a, 1, 0.5) ? b : a;  // or else compilers make it a branch
    loser = a ^ b ^ winner;
  }

  // That of an end marker is above all others.
  [[nodiscard]] std::uint64_t lfaOf(Head head) const { return entryLfa(slots_[slotOf(head)].cursor); }

  // The order of two heads, and where these do not tell it, of their entries.
  [[nodiscard]] bool sortsBefore(Head a, Head b) const {
    if ((a ^ b) > slotMask) return a < b;
    return shape_.wholeKey ? lfaOf(a) < lfaOf(b) : entrySortsBefore(a, b);
  }

  // The order of two entries with the same key bits; an end marker sorts after every entry.
  [[nodiscard]] bool entrySortsBefore(Head a, Head b) const;

  const MergeSlot* slots_;
  std::size_t leaves_;
  HeadShape shape_;
  Head winner_ = 0;
  std::array<Head, maxFanIn> following_{};  // of each slot: the head of the entry behind its cursor
  std::array<Head, maxLeaves> losers_{};    // node 1 is the top; node 0 is not used
};

}  // namespace tarnvale
