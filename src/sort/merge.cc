// A pass reads every train of one work file, group by group. Each group becomes one train of the other file; the final
// pass has one group, and its entries go to the callback. The sort area is the read buffer: each train of a group has
// an equal part of it.
#include "sort/merge.h"

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <utility>

#include "common/output.h"
#include "common/sort_entry.h"
#include "sort/merge_selection.h"
#include "sort/work_file.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t onePassTrains = 30;   // at most merged in one pass
constexpr std::uint32_t twoPassTrains = 900;  // in two
constexpr std::uint32_t smallestFanIn = 6;
constexpr std::int32_t progressStep = 1000;

// What stays the same for all passes, and what a pass has come to.
struct MergePlan {
  std::uint32_t fanIn = 0;
  bool finalPass = false;
  std::size_t partSize = 0;        // bytes of the sort area for one train
  std::size_t alignment = 1;       // of a block, in the file and in memory
  std::uint32_t blockEntries = 0;  // entries of one block
  std::size_t blockSize = 0;       // bytes of one block
  std::uint32_t trainsRead = 0;    // of this pass
  std::uint32_t groups = 0;        // of this pass
  std::uint64_t outputStart = 0;   // work-file offset of the train being written
  std::time_t lastDisplay = 0;
};

// Gives each train of a group an equal part of the sort area. The system copies a block about twice as fast where it is
// aligned in the file and in memory alike, so a part begins aligned, and a read with the aligned offset before its
// block. Small parts have no bytes to spare for that.
void divideReadBuffer(const RunContext& run, MergePlan& plan) {
  constexpr std::size_t cacheLine = 64;
  constexpr std::size_t smallestAlignedPart = 4096;
  plan.partSize = run.sortAreaSize / plan.fanIn;
  if (plan.partSize >= smallestAlignedPart) {
    plan.alignment = cacheLine;
    plan.partSize -= plan.partSize % cacheLine;
  }
  plan.blockEntries = static_cast<std::uint32_t>((plan.partSize - (plan.alignment - 1)) / run.sortEntrySize);
  plan.blockSize = static_cast<std::size_t>(plan.blockEntries) * run.sortEntrySize;
}

MergePlan makePlan(const RunContext& run) {
  MergePlan plan;
  const auto trains = static_cast<std::uint32_t>(run.sortTrainCount);
  plan.finalPass = trains <= onePassTrains && trains <= run.sortEntryCapacity - 1;
  plan.fanIn = smallestFanIn;
  if (plan.finalPass) {
    plan.fanIn = trains;
  } else if (trains <= twoPassTrains) {
    while (plan.fanIn * plan.fanIn < trains) ++plan.fanIn;
  } else {
    while (plan.fanIn * plan.fanIn * plan.fanIn < trains) ++plan.fanIn;
  }
  divideReadBuffer(run, plan);
  plan.lastDisplay = std::time(nullptr);
  return plan;
}

StatusCode readBlock(RunContext& run, const MergePlan& plan, MergeSlot& slot, TrainBlock which) {
  const std::size_t before = slot.nextReadOffset % plan.alignment;
  std::uint8_t* const block = slot.blockStart + before;
  const StatusCode status = readTrainBlock(run, block, plan.blockSize, slot.nextReadOffset, before, which);
  slot.nextReadOffset += plan.blockSize;
  slot.cursor = block;
  slot.entriesLeft = plan.blockEntries;
  return status;
}

// Takes the next trains of the pass, up to the fan-in, and reads the first block of each.
StatusCode fillGroup(RunContext& run, MergePlan& plan, MergeGroup& group) {
  const auto trains = static_cast<std::uint32_t>(run.sortTrainCount);
  while (group.count < plan.fanIn && plan.trainsRead < trains) {
    MergeSlot& slot = group.slots[group.count];
    slot.blockStart = run.sortAreaBase + group.count * plan.partSize;
    slot.nextReadOffset = *run.trainReadCursor++;
    const StatusCode status = readBlock(run, plan, slot, TrainBlock::first);
    if (status != status::success) return status;
    ++plan.trainsRead;
    ++group.count;
  }
  return status::success;
}

void showProgress(RunContext& run, MergePlan& plan) {
  run.progressCountdown = progressStep;
  run.indexedRecordCount += progressStep;
  if (!run.recordCountEnabled || !run.progressEnabled) return;
  const std::time_t now = std::time(nullptr);
  if (now <= plan.lastDisplay) return;
  plan.lastDisplay = now;
  putProgressFormatted(run, "%" PRIu64 " records\r", run.indexedRecordCount);
}

StatusCode deliver(RunContext& run, MergePlan& plan, const std::uint8_t* entry) {
  const StatusCode status = run.mergeOutputCallback(run, entry);
  if (status == status::success && --run.progressCountdown == 0) showProgress(run, plan);
  return status;
}

StatusCode writeMerged(RunContext& run, const std::uint8_t* entry) {
  run.workFilePosition += run.sortEntrySize;
  const StatusCode status = writeEntry(run, run.mergeOutputFd, entry);
  return status == status::success ? status : status::workFileNotWritten;
}

StatusCode advance(RunContext& run, const MergePlan& plan, MergeSlot& slot) {
  if (--slot.entriesLeft == 0) return readBlock(run, plan, slot, TrainBlock::further);
  slot.cursor += run.sortEntrySize;
  return status::success;
}

// Merges the group up to the end markers of all its trains. `output` takes each entry.
template <typename Output>
StatusCode mergeGroup(RunContext& run, const MergePlan& plan, MergeGroup& group, Output output) {
  for (;;) {
    MergeSlot& slot = group.slots[SelectNextMergeEntry(group)];
    if (isEndMarker(slot.cursor)) return status::success;
    StatusCode status = output(slot.cursor);
    if (status == status::success) status = advance(run, plan, slot);
    if (status != status::success) return status;
  }
}

// Closes the train that the group became, and enters it into the train table.
StatusCode endOutputTrain(RunContext& run, MergePlan& plan) {
  StatusCode status = writeTrainEnd(run, run.mergeOutputFd);
  if (status == status::success) status = WorkFileFlush(run, run.mergeOutputFd);
  if (status != status::success) return status::workFileNotWritten;
  *run.trainWriteCursor++ = plan.outputStart;
  run.workFilePosition += run.sortEntrySize;
  plan.outputStart = run.workFilePosition;
  return status::success;
}

StatusCode mergeNextGroup(RunContext& run, MergePlan& plan) {
  ++plan.groups;
  if (!plan.finalPass) putProgressFormatted(run, "Merge pass %u\r", plan.groups);
  MergeGroup group = makeMergeGroup(run);
  const StatusCode status = fillGroup(run, plan, group);
  if (status != status::success) return status;
  if (plan.finalPass) {
    return mergeGroup(run, plan, group, [&](const std::uint8_t* entry) { return deliver(run, plan, entry); });
  }
  const StatusCode merged =
      mergeGroup(run, plan, group, [&](const std::uint8_t* entry) { return writeMerged(run, entry); });
  return merged == status::success ? endOutputTrain(run, plan) : merged;
}

StatusCode makePass(RunContext& run, MergePlan& plan) {
  run.workFilePosition = 0;
  run.trainReadCursor = run.trainTable;
  run.trainWriteCursor = run.trainTable;  // never overtakes the read cursor
  std::swap(run.mergeInputFd, run.mergeOutputFd);
  plan.groups = 0;
  plan.trainsRead = 0;
  plan.outputStart = 0;
  while (plan.trainsRead < static_cast<std::uint32_t>(run.sortTrainCount)) {
    const StatusCode status = mergeNextGroup(run, plan);
    if (status != status::success) return status;
  }
  return status::success;
}

}  // namespace

StatusCode DoFancyMerge(RunContext& run) {
  MergePlan plan = makePlan(run);
  for (;;) {
    const StatusCode status = makePass(run, plan);
    if (status != status::success) return status;
    if (!plan.finalPass) PutMessage(run, "\n");  // ends the progress line
    run.sortTrainCount = static_cast<std::int32_t>(plan.groups);
    recycleInputFile(run, !plan.finalPass);
    if (plan.finalPass) return status::success;
    plan.finalPass = plan.groups <= plan.fanIn;
  }
}

}  // namespace tarnvale
