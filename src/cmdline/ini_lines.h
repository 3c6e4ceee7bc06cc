// The line reader of `.ini` files.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace tarnvale {

/// Reads a file line by line through a buffer of 900 bytes; a longer line comes in pieces of 900 characters.
struct IniLines {
  static constexpr std::size_t bufferSize = 900;

  int fd = -1;                                // open for reading; the caller closes it
  std::array<char, bufferSize + 1> buffer{};  // one byte more, for the LF that a last line may lack
  std::size_t position = 0;                   // of the first unread byte
  std::size_t unread = 0;                     // number of unread bytes
  std::string_view line;                      // the line read last; holds until the next is read
};

/// Reads the next line into `lines.line`, without its LF or CR LF and cut at a NUL byte. The length of the line and its
/// end mark, or 0 at the end of the file.
std::size_t readIniLine(IniLines& lines);

}  // namespace tarnvale
