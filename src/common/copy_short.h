// Copying and comparing a few bytes, where a call would take longer than that.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tarnvale {

/// Copies a short piece of memory. Up to 32 bytes, which most entries and keys have, are copied as two pieces that may
/// overlap, without a call.
template <typename Byte>
[[gnu::always_inline]] inline void copyShort(Byte* to, const Byte* from, std::size_t size) {
  static_assert(sizeof(Byte) == 1);
  const auto copyEnds = [&]<std::size_t piece>(std::integral_constant<std::size_t, piece>) {
    std::array<Byte, piece> front;
    std::array<Byte, piece> back;
    std::memcpy(front.data(), from, piece);
    std::memcpy(back.data(), from + size - piece, piece);
    std::memcpy(to, front.data(), piece);
    std::memcpy(to + size - piece, back.data(), piece);
  };
  if (size > 32 || size < 4) {
    std::memcpy(to, from, size);
  } else if (size >= 16) {
    copyEnds(std::integral_constant<std::size_t, 16>{});
  } else if (size >= 8) {
    copyEnds(std::integral_constant<std::size_t, 8>{});
  } else {
    copyEnds(std::integral_constant<std::size_t, 4>{});
  }
}

/// True when two short pieces of memory are equal. Of 8 to 16 bytes two numbers each are compared, without a call.
[[nodiscard]] [[gnu::always_inline]] inline bool equalShort(const std::uint8_t* a, const std::uint8_t* b,
                                                            std::size_t size) {
  if (size < 8 || size > 16) return std::memcmp(a, b, size) == 0;
  const auto differing = [&](std::size_t place) {
    std::uint64_t left = 0;
    std::uint64_t right = 0;
    std::memcpy(&left, a + place, sizeof left);
    std::memcpy(&right, b + place, sizeof right);
    return left ^ right;
  };
  return (differing(0) | differing(size - 8)) == 0;
}

}  // namespace tarnvale
