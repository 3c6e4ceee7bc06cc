// Eight key bytes as one number: most comparisons of keys end there.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace tarnvale {

/// The 8 bytes at `key` as a number that orders as they do. Near the end of a key it takes bytes of what lies behind,
/// which must be readable; `keyPrefixMask` tells which bits count.
[[nodiscard]] inline std::uint64_t loadKeyPrefix(const std::uint8_t* key) {
  std::uint64_t bytes;
  std::memcpy(&bytes, key, sizeof bytes);
  if constexpr (std::endian::native == std::endian::little) bytes = __builtin_bswap64(bytes);
  return bytes;
}

/// The bits of a prefix loaded at `offset` that belong to a key of `keyLength` bytes: none at its end.
[[nodiscard]] inline std::uint64_t keyPrefixMask(std::uint32_t keyLength, std::uint32_t offset) {
  const std::uint32_t bytes = std::min<std::uint32_t>(keyLength - offset, 8);
  return bytes == 0 ? 0 : ~std::uint64_t{0} << (64 - 8 * bytes);
}

}  // namespace tarnvale
