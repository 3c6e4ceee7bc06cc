#include "read/text_output.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

void appendHex(std::string& text, char c) {
  constexpr char digits[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  text += digits[byte / 16];
  text += digits[byte % 16];
}

}  // namespace

void TextOutput::putNumber(std::uint64_t number) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text_.append(digits.data(), end);
}

void TextOutput::putEscaped(std::string_view bytes) {
  for (const char c : bytes) {
    if (c == '\\') {
      text_ += "\\\\";
    } else if (isPrintable(c)) {
      text_ += c;
    } else {
      text_ += "\\x";
      appendHex(text_, c);
    }
  }
}

void TextOutput::putJsonText(std::string_view name, std::string_view bytes) {
  const bool printable = std::ranges::all_of(bytes, isPrintable);
  put('"');
  put(name);
  put(printable ? "\":\"" : "Hex\":\"");
  for (const char c : bytes) {
    if (!printable) {
      appendHex(text_, c);
    } else {
      if (c == '"' || c == '\\') text_ += '\\';
      text_ += c;
    }
  }
  put('"');
}

bool TextOutput::flush() {
  const bool written = writeAll(fd_, text_.data(), text_.size());
  text_.clear();
  return written;
}

}  // namespace tarnvale
