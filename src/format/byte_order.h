// Integers made of bytes, lowest byte first: the fields of every record that reaches a file.
//
// They have no alignment and no padding, so a record of them lies in a file exactly as it is declared. A record that
// came from a file in the other byte order is byte-swapped field by field with `swapBytes`.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace tarnvale {

template <typename Integer>
struct LittleEndian {
  std::array<std::uint8_t, sizeof(Integer)> bytes;

  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): it is used as the integer it holds
  operator Integer() const {
    Integer value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return inFileOrder(value);
  }

  LittleEndian& operator=(Integer value) {
    const Integer stored = inFileOrder(value);
    std::memcpy(bytes.data(), &stored, sizeof stored);
    return *this;
  }

 private:
  static Integer inFileOrder(Integer value) {
    if constexpr (std::endian::native == std::endian::big) {
      auto raw = std::bit_cast<std::array<std::uint8_t, sizeof(Integer)>>(value);
      std::ranges::reverse(raw);
      return std::bit_cast<Integer>(raw);
    }
    return value;
  }
};

using Le16 = LittleEndian<std::uint16_t>;
using Le32 = LittleEndian<std::uint32_t>;
using Le64 = LittleEndian<std::uint64_t>;

static_assert(sizeof(Le16) == 2 && sizeof(Le32) == 4 && sizeof(Le64) == 8);
static_assert(alignof(Le16) == 1 && alignof(Le32) == 1 && alignof(Le64) == 1);

/// Reverses the bytes of one field in place.
template <typename Integer>
void swapBytes(LittleEndian<Integer>& field) {
  std::ranges::reverse(field.bytes);
}

}  // namespace tarnvale
