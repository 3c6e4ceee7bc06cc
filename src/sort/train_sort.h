// The sort of one train in memory.
//
// Entries stay where the source put them; slots that refer to them are permuted. The order is total (key, then LFA), so
// the result does not depend on the method.
#pragma once

#include <cstdint>
#include <span>

#include "common/function_ref.h"
#include "sort/sort_area.h"

namespace tarnvale {

/// How small groups of entries are sorted.
enum class SortMethod : std::uint8_t { shellSort, quickSort };

/// An entry number and bits of its key: what is moved about while a train is sorted.
struct SortPair {
  std::uint32_t bits;  // in key order
  std::uint32_t slot;
};
inline constexpr std::size_t maxPairs =
    131072;  // two areas of 1 MiB: part of the 4 MiB a run takes besides its buffers
inline constexpr std::size_t pairBufferSize = 2 * maxPairs * sizeof(SortPair);

/// Gets the slots of a train in order, all at once or one part after the other. False ends the sort.
using SortedSlotsSink = FunctionRef<bool(std::span<const std::uint32_t>)>;

/// Whether the first `count` entries of the area lie in order, as those of an index do. In any other train the first
/// few tell.
[[nodiscard]] bool isInOrder(const SortArea& area, std::uint32_t count);

/// Makes slot k of the area refer to entry k, for `count` entries and the end marker behind them, sorts the slots
/// before it, at least one, and hands them to `take`. `pairs` has pairBufferSize bytes. False when the sink ended
/// it.
[[nodiscard]] bool sortTrain(const SortArea& area, std::uint32_t count, SortMethod method, std::uint8_t* pairs,
                             SortedSlotsSink take);

}  // namespace tarnvale
