#include "sort/merge_selection.h"

#include <algorithm>
#include <limits>

#include "common/sort_entry.h"
#include "sort/key_prefix.h"

namespace tarnvale {

namespace {

using Head = MergeGroup::Head;

Head headOf(const MergeGroup& group, std::size_t slot) {
  const std::uint8_t* const entry = group.slots[slot].cursor;
  if (isEndMarker(entry)) return {std::numeric_limits<std::uint64_t>::max(), slot};
  return {loadKeyPrefix(entry + group.prefixStart) & group.prefixMask, slot};
}

// The order of two heads with the same prefix.
bool entrySortsBefore(const MergeGroup& group, const Head& a, const Head& b) {
  const std::uint8_t* const entryA = group.slots[a.slot].cursor;
  const std::uint8_t* const entryB = group.slots[b.slot].cursor;
  if (isEndMarker(entryA) || isEndMarker(entryB)) return !isEndMarker(entryA);
  return CompareSortEntries(entryA, entryB, group.keyLength) < 0;
}

// Leaves the smaller of the two in `winner` and the other in `loser`, without a branch on their order: it is as good as
// random, and a wrong guess costs more than the exchange.
void play(const MergeGroup& group, Head& winner, Head& loser) {
  bool exchange = loser.prefix < winner.prefix;
  if (loser.prefix == winner.prefix) exchange = entrySortsBefore(group, loser, winner);
  const std::uint64_t mask = std::uint64_t{0} - static_cast<std::uint64_t>(exchange);
  const std::uint64_t prefixes = (winner.prefix ^ loser.prefix) & mask;
  const std::uint64_t slots = (winner.slot ^ loser.slot) & mask;
  winner = {winner.prefix ^ prefixes, winner.slot ^ slots};
  loser = {loser.prefix ^ prefixes, loser.slot ^ slots};
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
  group.prefixMask = keyPrefixMask(run.sortKeyLength, run.sharedKeyLength);
  return group;
}

std::size_t SelectNextMergeEntry(MergeGroup& group) {
  if (group.count == 1) return 0;
  if (!group.started) {
    group.started = true;
    group.winner = playAll(group);
    return group.winner.slot;
  }
  Head winner = headOf(group, group.winner.slot);
  for (std::size_t node = (group.count + winner.slot) / 2; node >= 1; node /= 2)
    play(group, winner, group.losers[node]);
  group.winner = winner;
  return winner.slot;
}

}  // namespace tarnvale
