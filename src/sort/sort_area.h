// The memory that trains are sorted in and merged from.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/messages.h"
#include "format/sort_entry.h"

namespace tarnvale {

/// Bytes behind an area that may be looked at: a key prefix at its end, and what would be the entry behind a block.
inline constexpr std::uint32_t readableBehindArea = 256;
static_assert(readableBehindArea >= maxSortEntrySize + 8);

/// One block: entries from its start on, and behind them as many numbers of entries, which are sorted instead of the
/// entries themselves. It lives until the process ends.
struct SortArea {
  std::uint8_t* base = nullptr;
  std::uint32_t size = 0;  // bytes
  std::uint32_t keyLength = 0;
  std::uint32_t entrySize = 0;     // bytes: key length + 10
  std::uint32_t capacity = 0;      // entries of a train and its end marker
  std::uint32_t* slots = nullptr;  // behind the entries: one entry number each

  /// Where a source puts the entries of a train.
  [[nodiscard]] EntryArea train() const { return {base, capacity - 1, entrySize}; }
  [[nodiscard]] std::uint8_t* entryOfSlot(std::uint32_t slot) const {
    return base + static_cast<std::size_t>(slot) * entrySize;
  }
};

/// Extends the data segment by `size` bytes, or by the largest halving of it that can be had, down to 8192; sets base
/// and size. False when nothing can be had.
[[nodiscard]] bool probeMemory(SortArea& area, std::uint32_t size);

/// Divides the area for keys of `keyLength` bytes. False, with a message, when it is too small for the widest merge
/// that its trains may need.
[[nodiscard]] bool divideSortArea(SortArea& area, std::uint32_t keyLength, Messages& messages);

}  // namespace tarnvale
