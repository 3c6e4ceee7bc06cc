#include "common/messages.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::string_view gap = "...";

void appendShortened(FixedText<300>& message, std::string_view name, std::size_t room) {
  if (name.size() <= room) {
    static_cast<void>(message.append(name));
    return;
  }
  const std::size_t kept = room > gap.size() ? room - gap.size() : 0;
  const std::size_t head = kept / 2;
  const std::size_t tail = kept - head;
  static_cast<void>(message.append(name.substr(0, head)));
  static_cast<void>(message.append(gap.substr(0, std::min(gap.size(), room))));
  static_cast<void>(message.append(name.substr(name.size() - tail)));
}

void writeText(const Messages& messages, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), messages.stream);
  std::fflush(messages.stream);
}

// Writes the collected lines, here or in an interrupt, never twice; but a reader that does not take them must not hold
// the interrupt up.
void writeCollected(Messages& messages) {
  if (messages.collected == nullptr || messages.collected->size == 0) return;
  std::size_t size = 0;
  {
    const InterruptHold hold;
    size = std::exchange(messages.collected->size, 0);
    messages.blocks.take(::fileno(messages.stream), size);
    if (acceptsOutput(::fileno(messages.stream), 0)) {
      writeText(messages, {messages.collectedBytes.data(), size});
      return;
    }
  }
  writeText(messages, {messages.collectedBytes.data(), size});
}

}  // namespace

void putMessage(Messages& messages, std::string_view text) {
  if (messages.stream == nullptr) return;
  writeCollected(messages);
  writeText(messages, text);
}

void putCollectedLine(Messages& messages, std::string_view line) {
  if (messages.stream == nullptr) return;
  const auto collect = [&] {
    return collectMessage(messages, line.size(), [&](char* to) {
      std::ranges::copy(line, to);
      return line.size();
    });
  };
  if (collect()) return;
  writeCollected(messages);
  if (!collect()) writeText(messages, line);
}

void flushMessages(Messages& messages) {
  if (messages.stream != nullptr) writeCollected(messages);
}

void closeLog(Messages& messages) {
  flushMessages(messages);
  if (messages.stream == nullptr) return;
  std::fflush(messages.stream);
  std::FILE* const stream = messages.stream;
  messages.stream = nullptr;  // first, so that an interrupt writes to no closed stream
  if (messages.logOpened) std::fclose(stream);
  messages.logOpened = false;
}

void composeMessage(Messages& messages, std::initializer_list<MessagePiece> pieces) {
  std::size_t fixed = 0;
  std::size_t names = 0;
  std::size_t shortest = std::string_view::npos;
  for (const MessagePiece& piece : pieces) {
    if (!piece.isName) {
      fixed += piece.text.size();
    } else {
      ++names;
      shortest = std::min(shortest, piece.text.size());
    }
  }
  const std::size_t room = messages.buffer.capacity - std::min(fixed, messages.buffer.capacity);
  // Two names share the room; what a short one leaves goes to the other.
  const std::size_t share = names > 0 ? room / names : 0;
  const std::size_t longShare = names > 1 && shortest < share ? (room - shortest) / (names - 1) : share;
  messages.buffer.clear();
  for (const MessagePiece& piece : pieces) {
    if (piece.isName) {
      appendShortened(messages.buffer, piece.text, longShare);
    } else {
      static_cast<void>(messages.buffer.append(piece.text));
    }
  }
}

StatusCode failWith(Messages& messages, StatusCode code, std::initializer_list<MessagePiece> pieces) {
  composeMessage(messages, pieces);
  return code;
}

void putComposed(Messages& messages, std::initializer_list<MessagePiece> pieces) {
  composeMessage(messages, pieces);
  putMessage(messages, messages.buffer);
}

void putFormatted(Messages& messages, const char* pattern, ...) {
  std::va_list values;
  va_start(values, pattern);
  messages.buffer.formatList(pattern, values);
  va_end(values);
  putMessage(messages, messages.buffer);
}

void putProgressFormatted(Messages& messages, const char* pattern, ...) {
  if (!messages.progressEnabled) return;
  std::va_list values;
  va_start(values, pattern);
  messages.buffer.formatList(pattern, values);
  va_end(values);
  putMessage(messages, messages.buffer);
}

}  // namespace tarnvale
