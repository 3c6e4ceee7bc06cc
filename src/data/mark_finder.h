// The bytes of a block that may end a record, or its TABs, one after the other.
//
// Where records are short, a call for each of them costs more than the search. So 64 bytes are compared at a time and
// the places found are kept as bits of a number. Where they are long, the C library's search is the faster one.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tarnvale {

/// Finds the bytes equal to `mark` from `begin` on, by one search for each.
class SearchingMarkFinder {
 public:
  SearchingMarkFinder(const std::uint8_t* begin, const std::uint8_t* end, std::uint8_t mark)
      : from_(begin), end_(end), mark_(mark) {}

  /// The next place, or `end` when there is none.
  const std::uint8_t* next() {
    const void* const place = std::memchr(from_, mark_, static_cast<std::size_t>(end_ - from_));
    if (place == nullptr) return end_;
    from_ = static_cast<const std::uint8_t*>(place) + 1;
    return from_ - 1;
  }

 private:
  const std::uint8_t* from_;
  const std::uint8_t* end_;
  std::uint8_t mark_;
};

#if defined(__SSE2__)

/// Finds the bytes equal to `mark` from `begin` on. Up to 63 bytes behind `end` must be readable.
class MarkFinder {
 public:
  MarkFinder(const std::uint8_t* begin, const std::uint8_t* end, std::uint8_t mark)
      : piece_(begin), end_(end), mark_(_mm_set1_epi8(static_cast<char>(mark))), found_(compare(begin)) {}

  /// The next place, or one not before `end` when there is none.
  const std::uint8_t* next() {
    while (found_ == 0) {
      piece_ += pieceSize;
      if (piece_ >= end_) return end_;
      found_ = compare(piece_);
    }
    const std::uint8_t* const place = piece_ + std::countr_zero(found_);
    found_ &= found_ - 1;
    return place;
  }

 private:
  static constexpr std::size_t pieceSize = 64;

  [[nodiscard]] std::uint64_t compareSixteen(const std::uint8_t* bytes) const {
    const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(sixteen, mark_)));
  }

  [[nodiscard]] std::uint64_t compare(const std::uint8_t* bytes) const {
    return compareSixteen(bytes) | compareSixteen(bytes + 16) << 16 | compareSixteen(bytes + 32) << 32 |
           compareSixteen(bytes + 48) << 48;
  }

  const std::uint8_t* piece_;
  const std::uint8_t* end_;
  __m128i mark_;
  std::uint64_t found_;  // places in the piece not yet given
};

#else

using MarkFinder = SearchingMarkFinder;

#endif

}  // namespace tarnvale
