// The sort phase: the data file becomes one sorted stream of entries.
#pragma once

#include <functional>

#include "common/run_context.h"

namespace tarnvale {

/// Scans, sorts and writes train after train, merges them into `mergeOutputCallback`, and prints the record count. The
/// scan must stand at the start of the data file. 0, or the code of the scan, the merge or the callback; -156 too many
/// records or trains, -158 a work file could not be written.
[[nodiscard]] StatusCode SortPhase(RunContext& run);

/// Divides the sort area for keys of `keyLength` bytes: sets `sortKeyLength`, `sortEntrySize`, `sortEntryCapacity` and
/// `sortPointerArray`, and makes the train table empty. -9, with its message printed, when the area is too small for
/// the widest merge that its trains may need.
[[nodiscard]] StatusCode divideSortArea(RunContext& run, std::uint32_t keyLength);

/// Fills, sorts and writes trains until the input is exhausted; the last one ends with the end marker of the file.
/// `fillTrain` returns 0 when it has filled the train, -1 when its input is exhausted, or a failure code, which is
/// returned. -156, with its message printed, too many trains; -158 a work file could not be written.
[[nodiscard]] StatusCode formTrains(RunContext& run, const std::function<StatusCode()>& fillTrain);

/// Adds the entries delivered since the last full thousand to `indexedRecordCount`.
void completeRecordCount(RunContext& run);

/// Prints "N records, N deleted entries".
void putRecordCount(RunContext& run);

}  // namespace tarnvale
