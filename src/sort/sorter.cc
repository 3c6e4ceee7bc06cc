#include "sort/sorter.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "common/page_buffer.h"
#include "common/progress.h"

namespace tarnvale {

namespace {

void startTrainInTable(Sorter& sorter) { sorter.trainOffsets[sorter.trainsInTable++] = sorter.trainEnd; }

bool putEndMarker(Sorter& sorter) {
  std::uint8_t marker[maxSortEntrySize];
  writeEndMarker(marker, sorter.area.entrySize);
  return putEntry(sorter.output, marker, sorter.area.entrySize);
}

// Any train is continued by an empty one.
bool continuesTrain(const Sorter& sorter, const std::uint8_t* first, std::uint32_t count) {
  return count == 0 || compareSortEntries(sorter.trains.lastEntry.data(), first, sorter.area.keyLength) < 0;
}

// Begins a train, or goes on with the one before. False when a write failed.
bool beginTrain(Sorter& sorter, const std::uint8_t* first, std::uint32_t count) {
  if (!sorter.trains.any) {
    startTrainInTable(sorter);
    return true;
  }
  if (continuesTrain(sorter, first, count)) {
    --sorter.trainCount;
    return true;
  }
  if (!putEndMarker(sorter)) return false;
  sorter.trainEnd += sorter.area.entrySize;
  startTrainInTable(sorter);
  return true;
}

std::uint32_t equalLength(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t length) {
  return static_cast<std::uint32_t>(std::mismatch(a, a + length, b).first - a);
}

// Keeps the last entry, and the number of leading bytes that all keys share: what the first and the last key of a
// sorted train share with the sample, all between them share too.
void rememberTrain(Sorter& sorter, const std::uint8_t* first, const std::uint8_t* last) {
  WrittenTrains& trains = sorter.trains;
  if (!trains.any) {
    std::memcpy(trains.sampleKey.data(), entryKey(first), sorter.area.keyLength);
    trains.sharedKeyLength = sorter.area.keyLength;
  }
  trains.sharedKeyLength = equalLength(trains.sampleKey.data(), entryKey(first), trains.sharedKeyLength);
  trains.sharedKeyLength = equalLength(trains.sampleKey.data(), entryKey(last), trains.sharedKeyLength);
  std::memcpy(trains.lastEntry.data(), last, sorter.area.entrySize);
  trains.any = true;
}

// Writes the entries of these slots.
bool writeSlots(Sorter& sorter, std::span<const std::uint32_t> slots) {
  const SortArea& area = sorter.area;
  constexpr std::size_t ahead = 12;  // entries lie all over the area: the next ones are fetched meanwhile
  for (std::size_t i = 0; i < slots.size(); ++i) {
    __builtin_prefetch(area.entryOfSlot(slots[std::min(i + ahead, slots.size() - 1)]));
    if (!putEntry(sorter.output, area.entryOfSlot(slots[i]), area.entrySize)) return false;
  }
  return true;
}

// Writes a train that is in order as it lies there.
bool writeTrainInOrder(Sorter& sorter, std::uint32_t count) {
  const SortArea& area = sorter.area;
  if (!beginTrain(sorter, area.entryOfSlot(0), count)) return false;
  if (!putBytes(sorter.output, area.base, std::size_t{count} * area.entrySize)) return false;
  if (count > 0) rememberTrain(sorter, area.entryOfSlot(0), area.entryOfSlot(count - 1));
  return true;
}

bool sortAndWriteTrain(Sorter& sorter, std::uint32_t count) {
  const SortArea& area = sorter.area;
  bool begun = false;
  const auto write = [&](std::span<const std::uint32_t> slots) {
    if (!begun && !beginTrain(sorter, area.entryOfSlot(slots.front()), count)) return false;
    begun = true;
    return writeSlots(sorter, slots);
  };
  if (!sortTrain(area, count, sorter.limits.method, sorter.pairs, write)) return false;
  rememberTrain(sorter, area.entryOfSlot(area.slots[0]), area.entryOfSlot(area.slots[count - 1]));
  return true;
}

// Writes the train sorted; an end marker follows it unless the area was full. False when a write failed.
bool writeSortTrain(Sorter& sorter, const FilledTrain& filled) {
  const SortArea& area = sorter.area;
  const std::uint32_t count = filled.entries;
  const bool inOrder = filled.inOrder || isInOrder(area, count);
  if (!(inOrder ? writeTrainInOrder(sorter, count) : sortAndWriteTrain(sorter, count))) return false;
  const std::uint32_t room = area.train().room;
  sorter.trainEnd += static_cast<std::uint64_t>(room) * area.entrySize;
  return count == room || putEndMarker(sorter);
}

SortResult writeAndCountTrain(Sorter& sorter, const FilledTrain& filled, const Progress& progress, Messages& messages) {
  if (!writeSortTrain(sorter, filled)) return SortResult::workFileNotWritten;
  ++sorter.trainCount;
  if (sorter.trainCount >= sorter.limits.maxTrains) {
    putMessage(messages, "\nToo many sort trains\n");
    return SortResult::tooManyTrains;
  }
  if (messages.progressEnabled) {
    putProgressFormatted(messages, "Sort train %u%s\r", sorter.trainCount,
                         progress.note(filled.done, filled.total).c_str());
  }
  return SortResult::done;
}

// Ends the trains: writes the one still in memory when no other was written, then the end marker of the file.
SortResult finishTrains(Sorter& sorter, const FilledTrain& filled, bool anyWritten, Messages& messages) {
  if (anyWritten) {
    putMessage(messages, "\n");  // ends the progress line
  } else {
    if (!writeSortTrain(sorter, filled)) return SortResult::workFileNotWritten;
    ++sorter.trainCount;
  }
  return putEndMarker(sorter) && flushOutput(sorter.output) ? SortResult::done : SortResult::workFileNotWritten;
}

}  // namespace

bool SortMemory::allocateBuffers() {
  output = allocatePages(outputBufferSize);
  pairs = allocatePages(pairBufferSize);
  return output != nullptr && pairs != nullptr;
}

bool SortMemory::allocateTrainTable(std::uint32_t maxTrains) {
  trainOffsets.reset(static_cast<std::uint64_t*>(std::calloc(maxTrains, sizeof(std::uint64_t))));
  return trainOffsets != nullptr;
}

bool startSorter(Sorter& sorter, const SortMemory& memory, const SortLimits& limits, std::uint32_t keyLength,
                 Messages& messages) {
  sorter.output.base = memory.output.get();
  sorter.pairs = memory.pairs.get();
  sorter.trainOffsets = memory.trainOffsets.get();
  sorter.limits = limits;
  return divideSortArea(sorter.area, keyLength, messages);
}

SortResult formTrains(Sorter& sorter, const TrackedFiles& files, Messages& messages, TrainSource source) {
  aimOutput(sorter.output, sorter.written, files[sorter.written].fd, 0);
  const Progress progress;
  bool anyWritten = false;
  for (;;) {
    const FilledTrain filled = source(sorter.area.train());
    if (filled.state == FilledTrain::State::failed) return SortResult::sourceFailed;
    const bool last = filled.state == FilledTrain::State::last;
    sorter.formed += filled.entries;
    if (!last || anyWritten) {
      const SortResult result = writeAndCountTrain(sorter, filled, progress, messages);
      if (result != SortResult::done) return result;
      anyWritten = true;
    }
    if (!last) continue;
    giveBackPages(sorter.pairs, pairBufferSize);  // what is needed from here on takes their place
    return finishTrains(sorter, filled, anyWritten, messages);
  }
}

}  // namespace tarnvale
