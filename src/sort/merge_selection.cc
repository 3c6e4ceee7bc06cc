#include "sort/merge_selection.h"

#include <algorithm>
#include <utility>

#include "common/sort_entry.h"
#include "sort/key_prefix.h"

namespace tarnvale {

namespace {

using Head = MergeGroup::Head;

std::size_t slotOf(Head head) { return head & MergeGroup::slotMask; }

Head headOf(const MergeGroup& group, std::size_t slot) {
  const std::uint8_t* const entry = group.slots[slot].cursor;
  const std::uint64_t prefix = isEndMarker(entry) ? ~std::uint64_t{0} : loadKeyPrefix(entry + group.prefixStart);
  return (prefix & group.prefixMask) | slot;
}

// The order of two heads with the same key bits.
[[gnu::noinline]] bool entrySortsBefore(const MergeGroup& group, Head a, Head b) {
  const std::uint8_t* const entryA = group.slots[slotOf(a)].cursor;
  const std::uint8_t* const entryB = group.slots[slotOf(b)].cursor;
  if (isEndMarker(entryA) || isEndMarker(entryB)) return !isEndMarker(entryA);
  return CompareSortEntries(entryA, entryB, group.keyLength) < 0;
}

// Leaves the smaller of the two in `winner` and the other in `loser`. There is no branch on their order: it is as good
// as random, and a wrong guess costs more than the exchange.
void play(const MergeGroup& group, Head& winner, Head& loser) {
  const Head a = winner;
  const Head b = loser;
  if ((a ^ b) <= MergeGroup::slotMask) [[unlikely]] {
    if (entrySortsBefore(group, b, a)) std::swap(winner, loser);
    return;
  }
  const Head exchange = (a ^ b) & (Head{0} - static_cast<Head>(b < a));  // as min and max compilers make it a branch
  winner = a ^ exchange;
  loser = b ^ exchange;
}

// Leaf i of the tree stands below node (count + i) / 2.
Head playAll(MergeGroup& group) {
  std::array<Head, 2 * maxFanIn> winners{};
  for (std::size_t i = 0; i < group.count; ++i) winners[group.count + i] = headOf(group, i);
  for (std::size_t node = group.count - 1; node >= 1; --node) {
    winners[node] = winners[2 * node];
    group.losers[node] = winners[2 * node + 1];
    play(group, winners[node], group.losers[node]);
  }
  return winners[1];
}

}  // namespace

MergeGroup makeMergeGroup(const RunContext& run) {
  MergeGroup group;
  group.keyLength = run.sortKeyLength;
  group.prefixStart = static_cast<std::uint32_t>(sortEntryHeadSize) + run.sharedKeyLength;
  group.prefixMask = keyPrefixMask(run.sortKeyLength, run.sharedKeyLength) & ~MergeGroup::slotMask;
  return group;
}

std::size_t SelectNextMergeEntry(MergeGroup& group) {
  if (group.count == 1) return 0;
  if (!group.started) {
    group.started = true;
    group.winner = playAll(group);
    return slotOf(group.winner);
  }
  const std::size_t moved = slotOf(group.winner);
  Head winner = headOf(group, moved);
  for (std::size_t node = (group.count + moved) / 2; node >= 1; node /= 2) play(group, winner, group.losers[node]);
  group.winner = winner;
  return slotOf(winner);
}

}  // namespace tarnvale
