#include "sort/merge.h"

#include <algorithm>
#include <cinttypes>

namespace tarnvale {

namespace {

constexpr std::uint32_t onePassTrains = 30;   // at most merged in one pass
constexpr std::uint32_t twoPassTrains = 900;  // in two
constexpr std::uint32_t smallestFanIn = 6;

FileRole otherWorkFile(FileRole file) {
  return file == FileRole::workFile1 ? FileRole::workFile2 : FileRole::workFile1;
}

// Gives each train of a group an equal part of the sort area. The system copies a block about twice as fast where it is
// aligned in the file and in memory alike, so a part begins aligned, and a read with the aligned offset before its
// block. Small parts have no bytes to spare for that. Of a large part the beginning would have left the cache before it
// is merged.
void divideReadBuffer(const SortArea& area, MergePlan& plan) {
  constexpr std::size_t cacheLine = 64;
  constexpr std::size_t smallestAlignedPart = 4096;
  constexpr std::size_t largestPart = 262144;
  plan.partSize = std::min<std::size_t>(area.size / plan.fanIn, largestPart);
  if (plan.partSize >= smallestAlignedPart) {
    plan.alignment = cacheLine;
    plan.partSize -= plan.partSize % cacheLine;
  }
  const std::size_t room = plan.partSize - (plan.alignment - 1);
  plan.blockSize = room - room % area.entrySize;
}

void startPass(Sorter& sorter, MergePlan& plan, const TrackedFiles& files) {
  plan.readFd = files[sorter.written].fd;
  sorter.written = otherWorkFile(sorter.written);
  sorter.trainEnd = 0;
  plan.groups = 0;
  plan.trainsRead = 0;
}

// Merges the next trains of a pass into one of the other work file, which takes its place in the train table behind
// those that were read.
SortResult mergeIntoTrain(Sorter& sorter, MergePlan& plan, const Progress& progress, Messages& messages) {
  if (messages.progressEnabled) {
    putProgressFormatted(messages, "Merge pass %u%s\r", plan.groups + 1,
                         progress.note(plan.trainsRead, sorter.trainCount).c_str());
  }
  MergeGroup group;
  if (!fillGroup(sorter, plan, group, messages)) return SortResult::workFileNotRead;
  const std::uint32_t entrySize = sorter.area.entrySize;
  const std::uint64_t trainStart = sorter.trainEnd;
  std::uint64_t entries = 0;
  SortResult result = mergeGroup(sorter, plan, group, messages, [&](const std::uint8_t* entry) {
    ++entries;
    return putEntry(sorter.output, entry, entrySize);
  });
  if (result == SortResult::done) {
    std::uint8_t marker[maxSortEntrySize];
    writeEndMarker(marker, entrySize);
    if (!putEntry(sorter.output, marker, entrySize)) result = SortResult::sinkFailed;
  }
  if (result == SortResult::sinkFailed) return SortResult::workFileNotWritten;
  sorter.trainOffsets[plan.groups++] = trainStart;
  sorter.trainEnd += (entries + 1) * entrySize;
  return result;
}

}  // namespace

MergePlan makeMergePlan(const Sorter& sorter) {
  MergePlan plan;
  const std::uint32_t trains = sorter.trainCount;
  plan.finalPass = trains <= onePassTrains && trains <= sorter.area.capacity - 1;
  plan.fanIn = smallestFanIn;
  if (plan.finalPass) {
    plan.fanIn = trains;
  } else if (trains <= twoPassTrains) {
    while (plan.fanIn * plan.fanIn < trains) ++plan.fanIn;
  } else {
    while (plan.fanIn * plan.fanIn * plan.fanIn < trains) ++plan.fanIn;
  }
  divideReadBuffer(sorter.area, plan);
  return plan;
}

bool readBlock(const MergePlan& plan, MergeSlot& slot, TrainBlock which, Messages& messages) {
  const std::size_t before = slot.nextReadOffset % plan.alignment;
  std::uint8_t* const block = slot.part + before;
  const std::uint64_t offset = slot.nextReadOffset;
  slot.nextReadOffset += plan.blockSize;
  slot.cursor = block;
  slot.blockEnd = block + plan.blockSize;
  return readTrainBlock(plan.readFd, block, plan.blockSize, offset, before, which, messages);
}

bool fillGroup(const Sorter& sorter, MergePlan& plan, MergeGroup& group, Messages& messages) {
  while (group.count < plan.fanIn && plan.trainsRead < sorter.trainCount) {
    MergeSlot& slot = group.slots[group.count];
    slot.part = sorter.area.base + group.count * plan.partSize;
    slot.nextReadOffset = sorter.trainOffsets[plan.trainsRead];
    if (!readBlock(plan, slot, TrainBlock::first, messages)) return false;
    ++plan.trainsRead;
    ++group.count;
  }
  return true;
}

SortResult mergeUpToFinalPass(Sorter& sorter, MergePlan& plan, TrackedFiles& files, Messages& messages) {
  startPass(sorter, plan, files);
  while (!plan.finalPass) {
    aimOutput(sorter.output, sorter.written, files[sorter.written].fd, 0);
    const Progress progress;
    while (plan.trainsRead < sorter.trainCount) {
      const SortResult result = mergeIntoTrain(sorter, plan, progress, messages);
      if (result != SortResult::done) return result;
    }
    if (!flushOutput(sorter.output)) return SortResult::workFileNotWritten;
    finishPass(sorter, plan, files, messages);
    plan.finalPass = plan.groups <= plan.fanIn;
    startPass(sorter, plan, files);
  }
  return SortResult::done;
}

void finishPass(Sorter& sorter, const MergePlan& plan, TrackedFiles& files, Messages& messages) {
  if (!plan.finalPass) putMessage(messages, "\n");  // ends the progress line
  sorter.trainCount = plan.finalPass ? 1 : plan.groups;
  recycleWorkFile(files[otherWorkFile(sorter.written)], !plan.finalPass);
}

void showMergeProgress(MergeProgress& progress, std::uint64_t delivered, std::uint64_t total, Messages& messages) {
  if (!messages.progressEnabled) return;
  const std::time_t now = std::time(nullptr);
  if (now <= progress.lastShown) return;
  progress.lastShown = now;
  putProgressFormatted(messages, "%" PRIu64 " records%s\r", delivered,
                       progress.progress.note(delivered, total).c_str());
}

}  // namespace tarnvale
