// The text of the option section while it is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/numbers.h"

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
  /// The decimal number that stands here, 0 when no digit does, `limit` + 1 when it is larger than `limit`.
  std::uint32_t takeNumber(std::uint32_t limit) {
    std::string_view rest = text.substr(position);
    const std::uint32_t value = tarnvale::takeNumber(rest, limit);
    position = text.size() - rest.size();
    return value;
  }
  void skipBlanks() {
    while (peek() == ' ') ++position;
  }
};

}  // namespace tarnvale
