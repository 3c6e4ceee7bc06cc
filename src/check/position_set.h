// The positions that an index uses, to see that none is used twice.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "common/page_buffer.h"

namespace tarnvale {

/// A bit for each position. Where that would take more than 64 MiB, or cannot be had, nothing is remembered.
class PositionSet {
 public:
  /// For the positions below `size`.
  explicit PositionSet(std::uint64_t size) : size_(size <= mostPositions ? size : 0) {
    bits_.reset(static_cast<std::uint8_t*>(std::calloc(size_ / 8 + 1, 1)));  // pages that no one touches take no memory
    if (bits_ == nullptr) size_ = 0;
  }

  /// True when the position was added before.
  bool add(std::uint32_t position) {
    if (position >= size_) return false;
    std::uint8_t& byte = bits_[position / 8];
    const auto bit = static_cast<std::uint8_t>(1U << (position % 8));
    const bool before = (byte & bit) != 0;
    byte |= bit;
    return before;
  }

 private:
  static constexpr std::uint64_t mostPositions = std::uint64_t{64} << 23;

  std::unique_ptr<std::uint8_t[], FreeMemory> bits_;
  std::uint64_t size_;
};

}  // namespace tarnvale
