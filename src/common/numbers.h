// Decimal numbers at the front of a text.
#pragma once

#include <cstdint>
#include <string_view>

namespace tarnvale {

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Takes all decimal digits from the front. Their value, 0 when there is none; a value above `limit` becomes
/// `limit` + 1. `limit` is below 2^31.
[[nodiscard]] constexpr std::uint32_t takeNumber(std::string_view& rest, std::uint32_t limit) {
  std::uint64_t value = 0;
  for (; !rest.empty() && isDigit(rest.front()); rest.remove_prefix(1)) {
    value = value * 10 + static_cast<std::uint64_t>(rest.front() - '0');
    if (value > limit) value = std::uint64_t{limit} + 1;
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace tarnvale
