// The work files of the sort and the one buffer through which all output goes.
//
// A work file is a plain sequence of sort entries: sorted trains, one after the other. An end marker follows each train
// that another one follows, and at least one ends the file. The train table tells where each train begins.
//
// The buffer of 256 KB does not know which file its bytes belong to: it must be flushed before another file is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/run_context.h"
#include "common/sort_entry.h"

namespace tarnvale {

/// Writes the bytes in the buffer to the file with one write and empties the buffer. 0, or -1 when not all could be
/// written; they are dropped then too.
[[nodiscard]] StatusCode WorkFileFlush(RunContext& run, int fd);

/// WorkFileWrite for bytes that may not fit into the buffer.
[[nodiscard]] StatusCode writeThroughFullBuffer(RunContext& run, int fd, const void* bytes, std::size_t size);

[[nodiscard]] inline std::size_t workBufferFree(const RunContext& run) {
  return static_cast<std::size_t>(run.workIoBuffer + workIoBufferSize - run.workIoPosition);
}

/// Adds one sort entry to the buffer: WorkFileWrite for the many short pieces of trains.
[[nodiscard]] inline StatusCode writeEntry(RunContext& run, int fd, const std::uint8_t* entry) {
  const std::size_t size = run.sortEntrySize;
  if (size >= workBufferFree(run)) return writeThroughFullBuffer(run, fd, entry, size);
  copyShort(run.workIoPosition, entry, size);
  run.workIoPosition += size;
  return status::success;
}

/// Adds the bytes to the buffer, which goes to the file whenever it is full. 0, or -1 when a write failed.
[[nodiscard]] inline StatusCode WorkFileWrite(RunContext& run, int fd, const void* bytes, std::size_t size) {
  if (size >= workBufferFree(run)) return writeThroughFullBuffer(run, fd, bytes, size);
  std::memcpy(run.workIoPosition, bytes, size);
  run.workIoPosition += size;
  return status::success;
}

/// Writes one end marker.
[[nodiscard]] StatusCode writeTrainEnd(RunContext& run, int fd);

/// Which block of a train is read; names the diagnostics of a short read.
enum class TrainBlock { first, further };

/// Reads one block of the merge's input work file to `block`, and with it the `before` bytes in front of it in the
/// file, which land in front of `block`. At the end of the file the block may be short. 0, or -3 when it cannot be
/// read.
[[nodiscard]] StatusCode readTrainBlock(RunContext& run, std::uint8_t* block, std::size_t size, std::uint64_t offset,
                                        std::size_t before, TrainBlock which);

/// After a merge pass: deletes the input file and, when `createAgain`, makes it anew and empty as the next output.
void recycleInputFile(RunContext& run, bool createAgain);

}  // namespace tarnvale
