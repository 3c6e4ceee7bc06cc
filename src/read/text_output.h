// What is written: text collected in memory, with numbers, keys and names in the form of lines or of JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnvale {

class TextOutput {
 public:
  explicit TextOutput(int fd) : fd_(fd) {}

  void put(std::string_view text) { text_ += text; }
  void put(char c) { text_ += c; }
  void putNumber(std::uint64_t number);
  /// Bytes that cannot be printed as \xHH, a backslash as two.
  void putEscaped(std::string_view bytes);
  /// The member of an object: "name":"text", or "nameHex":"..." where not all bytes are printable ASCII.
  void putJsonText(std::string_view name, std::string_view bytes);

  /// Writes what has been collected when that is worth while. False, with errno set, when it cannot be written.
  [[nodiscard]] bool flushWhenFull() { return text_.size() < enough || flush(); }
  [[nodiscard]] bool flush();

 private:
  static constexpr std::size_t enough = 65536;  // bytes; the room of a pipe
  int fd_;
  std::string text_;
};

}  // namespace tarnvale
