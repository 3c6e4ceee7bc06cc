#include "sort/sort_phase.h"

#include <cinttypes>

#include "common/output.h"
#include "sort/merge.h"
#include "sort/merge_selection.h"
#include "sort/record_scan.h"
#include "sort/train_sort.h"
#include "sort/train_writer.h"
#include "sort/work_file.h"

namespace tarnvale {

namespace {

constexpr std::uint64_t maxRecords = std::uint64_t{1} << 32;
constexpr std::int32_t progressStep = 1000;
constexpr std::uint32_t largestCountableFillLimit = 11;  // beyond, a tree holds more records than a sort accepts
constexpr std::uint32_t pointerSize = sizeof(std::uint32_t);

// Scans one train. Result as CreateSubList.
StatusCode scanTrain(RunContext& run) {
  const StatusCode scanned = CreateSubList(run);
  const bool succeeded = scanned == status::trainFull || scanned == status::inputExhausted;
  if (!succeeded || run.indexedRecordCount <= maxRecords) return scanned;
  PutMessage(run, "\nToo many records to index\n");
  return status::tooManyTrains;
}

std::uint64_t treeCapacity(std::uint32_t fillLimit) {
  std::uint64_t entries = 1;
  for (int level = 0; level < 16; ++level) entries *= fillLimit + 1;
  return entries - 1;
}

void warnWhenNearlyFull(RunContext& run) {
  if (run.fillLimit > largestCountableFillLimit) return;
  const std::uint64_t allowed = treeCapacity(run.fillLimit);
  if (run.indexedRecordCount <= allowed * 95 / 100) return;
  putFormatted(
      run, "Record count of (%" PRIu64 ") is more than 95 percent of %" PRIu64 " records allowed for this ISI file!\n",
      run.indexedRecordCount, allowed);
}

}  // namespace

StatusCode divideSortArea(RunContext& run, std::uint32_t keyLength) {
  run.sortKeyLength = keyLength;
  run.sortEntrySize = keyLength + static_cast<std::uint32_t>(sortEntryHeadSize);
  const auto smallest = static_cast<std::uint32_t>(maxFanIn + 1) * run.sortEntrySize;
  if (run.sortAreaSize < smallest) {
    putFormatted(run, "Sort memory of %u bytes is too small: a key of %u bytes needs %u bytes.\n", run.sortAreaSize,
                 keyLength, smallest);
    return status::outOfMemory;
  }
  run.sortEntryCapacity = run.sortAreaSize / (run.sortEntrySize + pointerSize) - 1;
  const std::size_t entryBytes = static_cast<std::size_t>(run.sortEntryCapacity) * run.sortEntrySize;
  // The base is aligned to 16 bytes, so the slots are aligned too.
  run.sortPointerArray = reinterpret_cast<std::uint32_t*>(run.sortAreaBase + (entryBytes + 7) / 8 * 8);
  run.trainReadCursor = run.trainTable;
  run.trainWriteCursor = run.trainTable;
  run.sortTrainCount = 0;
  return status::success;
}

namespace {

// Writes the sorted train in memory and counts it.
StatusCode writeAndCountTrain(RunContext& run) {
  if (WriteSortTrain(run) != status::success) return status::workFileNotWritten;
  ++run.sortTrainCount;
  if (static_cast<std::uint32_t>(run.sortTrainCount) >= run.maxSortTrains) {
    PutMessage(run, "\nToo many sort trains\n");
    return status::tooManyTrains;
  }
  putProgressFormatted(run, "Sort train %u\r", static_cast<unsigned>(run.sortTrainCount));
  return status::success;
}

// Ends the trains: writes the one still in memory when no other was written, then the end marker of the file.
StatusCode finishTrains(RunContext& run, bool anyWritten) {
  run.indexedRecordCount = 0;
  if (anyWritten) {
    PutMessage(run, "\n");  // ends the progress line
  } else {
    if (WriteSortTrain(run) != status::success) return status::workFileNotWritten;
    ++run.sortTrainCount;
  }
  StatusCode status = writeTrainEnd(run, run.mergeOutputFd);
  if (status == status::success) status = WorkFileFlush(run, run.mergeOutputFd);
  return status == status::success ? status : status::workFileNotWritten;
}

}  // namespace

StatusCode formTrains(RunContext& run, const std::function<StatusCode()>& fillTrain) {
  bool anyWritten = false;
  for (;;) {
    const StatusCode filled = fillTrain();
    if (filled != status::trainFull && filled != status::inputExhausted) return filled;
    SortTrain(run);
    if (filled == status::trainFull || anyWritten) {
      const StatusCode status = writeAndCountTrain(run);
      if (status != status::success) return status;
      anyWritten = true;
    }
    if (filled == status::inputExhausted) return finishTrains(run, anyWritten);
  }
}

void completeRecordCount(RunContext& run) {
  run.indexedRecordCount += static_cast<std::uint64_t>(progressStep - run.progressCountdown);
}

void putRecordCount(RunContext& run) {
  putFormatted(run, "%" PRIu64 " records, %u deleted entries\n", run.indexedRecordCount, run.deletedRecordCount);
}

StatusCode SortPhase(RunContext& run) {
  StatusCode status = formTrains(run, [&run] { return scanTrain(run); });
  if (status == status::success) status = DoFancyMerge(run);
  if (status != status::success) return status;
  completeRecordCount(run);
  putRecordCount(run);
  warnWhenNearlyFull(run);
  return status::success;
}

}  // namespace tarnvale
