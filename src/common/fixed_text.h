// FixedText<N>: text in a field of N bytes that reports what does not fit instead of overflowing or cutting it short.
//
// The text always ends in a NUL inside the field, so it can be handed to a system call as it is. It owns no heap and
// is trivially copyable: the interrupt handler may read it, and a record that holds it can be cleared by assignment.
#pragma once

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace tarnvale {

template <std::size_t N>
class FixedText {
 public:
  static constexpr std::size_t capacity = N - 1;  // characters, without the closing NUL

  /// Replaces the text. False, and the text unchanged, when it does not fit.
  [[nodiscard]] bool assign(std::string_view text) {
    if (text.size() > capacity) return false;
    std::ranges::copy(text, bytes_.begin());
    setLength(text.size());
    return true;
  }

  /// Adds to the end. False, and the text unchanged, when it does not fit.
  [[nodiscard]] bool append(std::string_view text) {
    if (text.size() > capacity - length_) return false;
    std::ranges::copy(text, bytes_.data() + length_);
    setLength(length_ + text.size());
    return true;
  }

  /// Replaces the text by all pieces, one after the other. False, and the text empty, when they do not fit.
  template <typename... Pieces>
  [[nodiscard]] bool join(const Pieces&... pieces) {
    clear();
    if ((append(pieces) && ...)) return true;
    clear();
    return false;
  }

  /// Replaces the text by at most `capacity` characters of a longer one.
  void assignCut(std::string_view text) { static_cast<void>(assign(text.substr(0, capacity))); }

  /// Replaces the text as printf would. False, and the text empty, when it does not fit.
  [[gnu::format(printf, 2, 3)]] bool format(const char* pattern, ...) {
    std::va_list values;
    va_start(values, pattern);
    const bool fits = formatList(pattern, values);
    va_end(values);
    return fits;
  }

  /// As format, with the values of a routine that has them as a list.
  [[gnu::format(printf, 2, 0)]] bool formatList(const char* pattern, std::va_list values) {
    const int wanted = std::vsnprintf(bytes_.data(), N, pattern, values);
    const bool fits = wanted >= 0 && static_cast<std::size_t>(wanted) <= capacity;
    setLength(fits ? static_cast<std::size_t>(wanted) : 0);
    return fits;
  }

  void truncate(std::size_t length) { setLength(std::min(length, length_)); }
  void clear() { setLength(0); }

  [[nodiscard]] bool empty() const { return length_ == 0; }
  [[nodiscard]] std::size_t size() const { return length_; }
  [[nodiscard]] std::string_view view() const { return {bytes_.data(), length_}; }
  [[nodiscard]] const char* c_str() const { return bytes_.data(); }
  /// The characters for a routine that changes them in place and leaves their number alone.
  [[nodiscard]] char* data() { return bytes_.data(); }

  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): a text is a view of itself
  operator std::string_view() const { return view(); }

 private:
  void setLength(std::size_t length) {
    length_ = length;
    bytes_[length] = '\0';
  }

  std::array<char, N> bytes_{};
  std::size_t length_ = 0;
};

}  // namespace tarnvale
