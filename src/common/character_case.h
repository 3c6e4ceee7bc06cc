// Upper and lower case of ASCII letters, whatever the locale says.
#pragma once

#include <algorithm>
#include <string_view>

namespace tarnvale {

[[nodiscard]] constexpr char upperCaseChar(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
[[nodiscard]] constexpr char lowerCaseChar(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// 0 when the texts are equal apart from the case of letters, else the difference of the first upper-cased characters
/// (as unsigned bytes) that differ; the end of a text counts as 0.
[[nodiscard]] constexpr int compareNoCase(std::string_view a, std::string_view b) {
  const auto charAt = [](std::string_view text, std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(upperCaseChar(text[i])) : 0;
  };
  for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const int difference = charAt(a, i) - charAt(b, i);
    if (difference != 0) return difference;
  }
  return 0;
}

}  // namespace tarnvale
