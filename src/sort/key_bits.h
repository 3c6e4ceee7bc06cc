// The bits in which the keys of a train differ, gathered into one number.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarnvale {

inline constexpr unsigned maxKeyBits = 32;  // of a number

/// Which bits of a key make its number, out of 8 bytes from `offset` on.
struct KeyBits {
  struct Part {  // of one byte
    std::uint64_t mask;
    unsigned move;  // to the right, where its bits stand in the number
  };
  std::uint32_t offset = 0;     // in the key
  std::uint32_t equalUpTo = 0;  // the keys are equal before this byte
  std::array<Part, 8> parts{};
  std::size_t partCount = 0;
  unsigned total = 0;  // 0: the keys do not differ
  bool more = false;   // not all bits that tell the keys apart are taken of the 8 bytes
  bool whole = true;   // keys with the same bits are equal

  /// The number of a key whose 8 bytes from `offset` on are `prefix`.
  [[nodiscard]] std::uint32_t gather(std::uint64_t prefix) const {
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < partCount; ++i) bits |= (prefix & parts[i].mask) >> parts[i].move;
    return static_cast<std::uint32_t>(bits);
  }
};

/// Takes up to `wanted` bits, at most maxKeyBits, where keys that are equal before `offset` differ in the bits
/// `differing` of the 8 bytes there; at least one bit is set. The number orders as the bytes do: all bits of a byte
/// below its highest differing one are taken, or, where that is too many, the upper ones of these.
[[nodiscard]] KeyBits takeBits(std::uint64_t differing, std::uint32_t offset, std::uint32_t keyLength, unsigned wanted);

}  // namespace tarnvale
