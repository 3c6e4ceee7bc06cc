// The external sort: a source's entries become sorted trains in the work files, and these one ordered stream.
//
// It knows neither records nor indexes. A source fills the sort area, train by train; a sink takes the entries in order
// (see merge.h).
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "common/function_ref.h"
#include "common/messages.h"
#include "common/page_buffer.h"
#include "common/tracked_files.h"
#include "sort/output_buffer.h"
#include "sort/sort_area.h"
#include "sort/train_sort.h"

namespace tarnvale {

/// What the user may say of the sort.
struct SortLimits {
  std::uint32_t maxMemory = 1048576;  // bytes asked for the sort area
  std::uint32_t maxTrains = 20000;
  SortMethod method = SortMethod::shellSort;
};

/// The memory of a sort besides its area.
struct SortMemory {
  PageBuffer output;  // outputBufferSize bytes
  PageBuffer pairs;   // pairBufferSize bytes
  std::unique_ptr<std::uint64_t[], FreeMemory> trainOffsets;

  /// Allocates the buffers. False when there is no memory for them.
  [[nodiscard]] bool allocateBuffers();
  /// Allocates the train table. False when there is no memory for it.
  [[nodiscard]] bool allocateTrainTable(std::uint32_t maxTrains);
};

/// What the trains written so far have in common, so that the merge looks at the bytes that differ, and the entry that
/// the next one may continue.
struct WrittenTrains {
  bool any = false;
  std::array<std::uint8_t, maxSortEntrySize> lastEntry{};
  std::array<std::uint8_t, maxKeyLength> sampleKey{};  // of the first train
  std::uint32_t sharedKeyLength = 0;                   // leading bytes in which all keys so far equal it
};

struct Sorter {
  SortArea area;
  OutputBuffer output;
  std::uint8_t* pairs = nullptr;          // not owned
  std::uint64_t* trainOffsets = nullptr;  // where each train begins in the work file; not owned
  std::uint32_t trainsInTable = 0;
  std::uint32_t trainCount = 0;  // formed so far, or left to be merged
  SortLimits limits;
  FileRole written = FileRole::workFile1;  // the work file being written; the other one is read
  WrittenTrains trains;
  std::uint64_t trainEnd = 0;   // offset in the written file where the next train starts
  std::uint64_t formed = 0;     // entries in all trains
  std::uint64_t delivered = 0;  // entries that the merge has handed to the sink
};

enum class SortResult : std::uint8_t {
  done,
  tooManyTrains,
  workFileNotRead,
  workFileNotWritten,
  sourceFailed,
  sinkFailed,  // the sink refused an entry
};

/// A train that a source has put into the area; an end marker stands behind its entries.
struct FilledTrain {
  enum class State : std::uint8_t { more, last, failed };

  State state;
  std::uint32_t entries;
  std::uint64_t done = 0;   // of the source's input, in units of its own
  std::uint64_t total = 0;  // 0: not known
  bool inOrder = false;     // known to the source: need not be looked at
};
using TrainSource = FunctionRef<FilledTrain(const EntryArea&)>;

/// Makes a sorter ready for keys of `keyLength` bytes, in memory that must outlive it. The area must have been obtained
/// (probeMemory). False, with a message, when it is too small.
[[nodiscard]] bool startSorter(Sorter& sorter, const SortMemory& memory, const SortLimits& limits,
                               std::uint32_t keyLength, Messages& messages);

/// Has the source fill the area, sorts and writes train after train until the last one, and ends the work file with an
/// end marker. A train that continues the one before in order becomes one with it. A message is printed when there are
/// too many trains.
[[nodiscard]] SortResult formTrains(Sorter& sorter, const TrackedFiles& files, Messages& messages, TrainSource source);

}  // namespace tarnvale
