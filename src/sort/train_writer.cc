#include "sort/train_writer.h"

#include <algorithm>
#include <cstring>

#include "common/sort_entry.h"
#include "sort/train_sort.h"
#include "sort/work_file.h"

namespace tarnvale {

namespace {

void startTrainInTable(RunContext& run) { *run.trainWriteCursor++ = run.workFilePosition; }

// An end marker continues any train: a train may be empty.
bool continuesTrain(const RunContext& run, const std::uint8_t* first) {
  return isEndMarker(first) || CompareSortEntries(run.lastWrittenEntry.data(), first, run.sortKeyLength) < 0;
}

StatusCode beginTrain(RunContext& run, const std::uint8_t* first) {
  if (!run.trainWritten) {
    startTrainInTable(run);
    return status::success;
  }
  if (continuesTrain(run, first)) {
    --run.sortTrainCount;
    return status::success;
  }
  if (writeTrainEnd(run, run.mergeOutputFd) != status::success) return status::writeFailed;
  run.workFilePosition += run.sortEntrySize;
  startTrainInTable(run);
  return status::success;
}

std::uint32_t equalLength(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t length) {
  return static_cast<std::uint32_t>(std::mismatch(a, a + length, b).first - a);
}

// Keeps the last entry, and the number of leading bytes that all keys share: what the first and the last key of a
// sorted train share with the sample, all between them share too.
void rememberTrain(RunContext& run, const std::uint8_t* first, const std::uint8_t* last) {
  if (!run.trainWritten) {
    std::memcpy(run.sampleKey.data(), entryKey(first), run.sortKeyLength);
    run.sharedKeyLength = run.sortKeyLength;
  }
  run.sharedKeyLength = equalLength(run.sampleKey.data(), entryKey(first), run.sharedKeyLength);
  run.sharedKeyLength = equalLength(run.sampleKey.data(), entryKey(last), run.sharedKeyLength);
  std::memcpy(run.lastWrittenEntry.data(), last, run.sortEntrySize);
  run.trainWritten = true;
}

}  // namespace

StatusCode WriteSortTrain(RunContext& run) {
  const std::uint8_t* const first = entryOfSlot(run, run.sortPointerArray[0]);
  if (beginTrain(run, first) != status::success) return status::writeFailed;
  run.workFilePosition += static_cast<std::uint64_t>(run.sortEntryCapacity - 1) * run.sortEntrySize;
  const std::uint8_t* last = nullptr;
  for (std::uint32_t i = 0; i < run.sortEntryCapacity - 1; ++i) {
    const std::uint8_t* const entry = entryOfSlot(run, run.sortPointerArray[i]);
    if (writeEntry(run, run.mergeOutputFd, entry) != status::success) return status::writeFailed;
    if (isEndMarker(entry)) break;
    last = entry;
  }
  if (WorkFileFlush(run, run.mergeOutputFd) != status::success) return status::writeFailed;
  if (last != nullptr) rememberTrain(run, first, last);
  return status::success;
}

}  // namespace tarnvale
