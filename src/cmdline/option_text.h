// The text of the option section while it is read.
#pragma once

#include <cstddef>
#include <string_view>

namespace tarnvale {

/// The section with the "-" or ";" that opens it, and the position of the next character. Behind the end stands a NUL.
struct OptionText {
  std::string_view text;
  std::size_t position = 1;

  [[nodiscard]] char peek(std::size_t ahead = 0) const {
    return position + ahead < text.size() ? text[position + ahead] : '\0';
  }
  [[nodiscard]] bool atEnd() const { return position >= text.size(); }
  char take() {
    const char c = peek();
    if (!atEnd()) ++position;
    return c;
  }
  /// The character that was taken last.
  [[nodiscard]] char last() const { return text[position - 1]; }
  void skipBlanks() {
    while (peek() == ' ') ++position;
  }
};

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace tarnvale
