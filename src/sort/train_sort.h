// The sort of one train in memory.
//
// Entries stay where the scan put them; slots that refer to them are permuted. The order is total (key, then LFA), so
// the result does not depend on the method.
#pragma once

#include <cstdint>
#include <span>

#include "common/run_context.h"

namespace tarnvale {

/// Makes slot k of the pointer array refer to entry k, up to the end marker, whose reference stays behind the last one,
/// and sorts the slots before it.
void SortTrain(RunContext& run);

/// The entry that a slot refers to.
[[nodiscard]] inline std::uint8_t* entryOfSlot(const RunContext& run, std::uint32_t slot) {
  return run.sortAreaBase + static_cast<std::size_t>(slot) * run.sortEntrySize;
}

/// Shell sort of the slots from `first` to `last`, inclusive.
void ShellSortEntries(const RunContext& run, std::uint32_t* first, std::uint32_t* last);

/// Quicksort of the slots from `first` to `last`, inclusive. Uses little stack whatever the order.
void QuickSortEntries(const RunContext& run, std::uint32_t* first, std::uint32_t* last);

}  // namespace tarnvale
