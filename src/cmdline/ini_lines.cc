#include "cmdline/ini_lines.h"

#include <cstring>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

// Moves the unread bytes to the start of the buffer and fills it up. False when the file has no more bytes.
bool refill(IniLines& lines) {
  std::memmove(lines.buffer.data(), lines.buffer.data() + lines.position, lines.unread);
  lines.position = 0;
  char* const free = lines.buffer.data() + lines.unread;
  const ssize_t count = readNext(lines.fd, free, IniLines::bufferSize - lines.unread);
  if (count <= 0) return false;
  lines.unread += static_cast<std::size_t>(count);
  return true;
}

}  // namespace

std::size_t readIniLine(IniLines& lines) {
  if (lines.unread == 0 && !refill(lines)) return 0;
  std::size_t length = 0;  // of the line and its LF, or of a piece of a long line
  for (;;) {
    const char* const start = lines.buffer.data() + lines.position;
    const void* const lineFeed = std::memchr(start, '\n', lines.unread);
    if (lineFeed != nullptr) {
      length = static_cast<std::size_t>(static_cast<const char*>(lineFeed) - start) + 1;
      break;
    }
    if (lines.unread == IniLines::bufferSize) {
      length = lines.unread;
      break;
    }
    if (!refill(lines)) lines.buffer[lines.unread++] = '\n';
  }
  std::string_view text(lines.buffer.data() + lines.position, length);
  if (text.ends_with('\n')) {
    text.remove_suffix(1);
    if (text.ends_with('\r')) text.remove_suffix(1);
  }
  lines.line = text.substr(0, text.find('\0'));
  lines.position += length;
  lines.unread -= length;
  return length;
}

}  // namespace tarnvale
