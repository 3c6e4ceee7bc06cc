// The merge of the sort trains, in one to three passes over the two work files.
//
// A pass reads every train of one work file, group by group. Each group becomes one train of the other file; the final
// pass has one group, and its entries go to the sink. The sort area is the read buffer: each train of a group has an
// equal part of it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>

#include "common/limits.h"
#include "common/messages.h"
#include "common/progress.h"
#include "common/tracked_files.h"
#include "sort/merge_selection.h"
#include "sort/sorter.h"
#include "sort/work_files.h"

namespace tarnvale {

/// What stays the same for all passes, and what a pass has come to.
struct MergePlan {
  std::uint32_t fanIn = 0;
  bool finalPass = false;
  int readFd = -1;               // of the work file being read
  std::size_t partSize = 0;      // bytes of the sort area for one train
  std::size_t alignment = 1;     // of a block, in the file and in memory
  std::size_t blockSize = 0;     // bytes of one block, whole entries
  std::uint32_t trainsRead = 0;  // of this pass
  std::uint32_t groups = 0;      // of this pass
};

/// The trains that are merged into one.
struct MergeGroup {
  std::array<MergeSlot, maxFanIn> slots{};
  std::size_t count = 0;  // slots filled
};

/// How far the final pass is, at a terminal and at most once a second.
struct MergeProgress {
  Progress progress;
  std::time_t lastShown = progress.start;
};

/// Chooses fan-in and number of passes for the trains of the sorter.
[[nodiscard]] MergePlan makeMergePlan(const Sorter& sorter);

/// All passes but the final one, and the beginning of that.
[[nodiscard]] SortResult mergeUpToFinalPass(Sorter& sorter, MergePlan& plan, TrackedFiles& files, Messages& messages);

/// Takes the next trains of the pass, up to the fan-in, and reads the first block of each. False when one cannot be
/// read.
[[nodiscard]] bool fillGroup(const Sorter& sorter, MergePlan& plan, MergeGroup& group, Messages& messages);

/// Reads the slot's next block. False when it cannot be read.
[[nodiscard]] bool readBlock(const MergePlan& plan, MergeSlot& slot, TrainBlock which, Messages& messages);

/// The pass is over: its groups are the trains of the next one, and the file that was read is deleted.
void finishPass(Sorter& sorter, const MergePlan& plan, TrackedFiles& files, Messages& messages);

void showMergeProgress(MergeProgress& progress, std::uint64_t delivered, std::uint64_t total, Messages& messages);

/// Merges the group up to the end markers of all its trains. `take` gets each entry and returns false to end the merge.
template <typename Take>
[[nodiscard]] SortResult mergeGroup(const Sorter& sorter, const MergePlan& plan, MergeGroup& group, Messages& messages,
                                    Take take) {
  const std::uint32_t entrySize = sorter.area.entrySize;
  LoserTree tree(group.slots.data(), group.count, makeHeadShape(sorter.area.keyLength, sorter.trains.sharedKeyLength));
  const auto deliver = [&](MergeSlot& slot) {
    if (!take(slot.cursor)) return SortResult::sinkFailed;
    slot.cursor += entrySize;
    if (slot.cursor != slot.blockEnd) return SortResult::done;
    if (!readBlock(plan, slot, TrainBlock::further, messages)) return SortResult::workFileNotRead;
    tree.changeBlock();
    return SortResult::done;
  };
  if (group.count == 1) {  // nothing to select from
    MergeSlot& slot = group.slots[0];
    SortResult result = SortResult::done;
    while (result == SortResult::done && !isEndMarker(slot.cursor)) result = deliver(slot);
    return result;
  }
  constexpr unsigned winsInARow = 3;  // seldom by chance
  unsigned wins = 0;
  for (std::size_t winner = tree.winner();;) {
    MergeSlot& slot = group.slots[winner];
    if (tree.mayHaveEnded() && isEndMarker(slot.cursor)) return SortResult::done;
    SortResult result = deliver(slot);
    // A train that goes on winning, as with nearly sorted data or equal keys, plays no match until another one leads.
    if (wins == winsInARow && result == SortResult::done) [[unlikely]] {
      const LoserTree::Head runnerUp = tree.runnerUp();
      while (result == SortResult::done && tree.staysWinner(runnerUp)) result = deliver(slot);
    }
    if (result != SortResult::done) return result;
    const std::size_t before = winner;
    winner = tree.selectNextMergeEntry();
    wins = winner == before ? std::min(wins + 1, winsInARow) : 0;
  }
}

/// Merges the trains that were formed (at least 1) and hands each entry, in order, to `sink`, a callable that returns
/// false to end the merge; the entry's address holds during the call only. `sorter.delivered` counts them,
/// and a progress line shows them where `countRecords` is set.
template <typename Sink>
[[nodiscard]] SortResult doFancyMerge(Sorter& sorter, TrackedFiles& files, Messages& messages, bool countRecords,
                                      Sink&& sink) {
  MergeProgress progress;
  MergePlan plan = makeMergePlan(sorter);
  SortResult result = mergeUpToFinalPass(sorter, plan, files, messages);
  if (result != SortResult::done) return result;
  MergeGroup group;
  if (!fillGroup(sorter, plan, group, messages)) return SortResult::workFileNotRead;
  std::uint64_t delivered = 0;
  std::uint32_t countdown = progressStep;
  result = mergeGroup(sorter, plan, group, messages, [&](const std::uint8_t* entry) {
    if (!sink(entry)) return false;
    if (--countdown == 0) [[unlikely]] {
      countdown = progressStep;
      delivered += progressStep;
      if (countRecords) showMergeProgress(progress, delivered, sorter.formed, messages);
    }
    return true;
  });
  sorter.delivered = delivered + (progressStep - countdown);
  if (result == SortResult::done) finishPass(sorter, plan, files, messages);
  return result;
}

}  // namespace tarnvale
