#include "common/output.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

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

}  // namespace

void PutMessage(RunContext& run, std::string_view text) {
  if (run.outputStream == nullptr) return;
  std::fwrite(text.data(), 1, text.size(), run.outputStream);
  std::fflush(run.outputStream);
}

void PutProgress(RunContext& run, std::string_view text) {
  if (run.progressEnabled) PutMessage(run, text);
}

void CloseLog(RunContext& run) {
  if (run.outputStream == nullptr) return;
  std::fflush(run.outputStream);
  std::FILE* const stream = run.outputStream;
  run.outputStream = nullptr;  // first, so that an interrupt writes to no closed stream
  run.outputStreamFd = -1;
  if (run.logOpened) std::fclose(stream);
  run.logOpened = false;
}

void composeMessage(RunContext& run, std::initializer_list<MessagePiece> pieces) {
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
  const std::size_t room = run.messageBuffer.capacity - std::min(fixed, run.messageBuffer.capacity);
  // Two names share the room; what a short one leaves goes to the other.
  const std::size_t share = names > 0 ? room / names : 0;
  const std::size_t longShare = names > 1 && shortest < share ? (room - shortest) / (names - 1) : share;
  run.messageBuffer.clear();
  for (const MessagePiece& piece : pieces) {
    if (piece.isName) {
      appendShortened(run.messageBuffer, piece.text, longShare);
    } else {
      static_cast<void>(run.messageBuffer.append(piece.text));
    }
  }
}

void putComposed(RunContext& run, std::initializer_list<MessagePiece> pieces) {
  composeMessage(run, pieces);
  PutMessage(run, run.messageBuffer);
}

void putFormatted(RunContext& run, const char* pattern, ...) {
  std::va_list values;
  va_start(values, pattern);
  run.messageBuffer.formatList(pattern, values);
  va_end(values);
  PutMessage(run, run.messageBuffer);
}

void putProgressFormatted(RunContext& run, const char* pattern, ...) {
  if (!run.progressEnabled) return;
  std::va_list values;
  va_start(values, pattern);
  run.messageBuffer.formatList(pattern, values);
  va_end(values);
  PutMessage(run, run.messageBuffer);
}

}  // namespace tarnvale
