// What the user reads: messages, progress lines, and the composing of messages with values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <span>
#include <string_view>

#include "common/file_blocks.h"
#include "common/fixed_text.h"
#include "common/status_code.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// The message stream. The driver opens and closes it; everyone writes through it.
struct Messages {
  std::FILE* stream = nullptr;  // null once it is closed: messages are dropped
  bool logOpened = false;       // the stream is a log file, which closeLog closes
  bool progressEnabled = true;  // off when the stream is not a terminal
  bool debugMode = false;       // diagnostics of every floor are written
  // Where many lines of one kind are collected, when they go to a file or a pipe; null: each is written at once.
  CollectedLines* collected = nullptr;
  std::size_t collectedLimit = 4096;  // bytes; a pipe takes as many without waiting, a file more
  std::array<char, 262144> collectedBytes;
  FileBlocks blocks;      // of the file that the stream goes to
  FixedText<300> buffer;  // where a message with values is composed; also holds the text of a failed opening
};

/// Writes the text unchanged and flushes. Dropped when the stream is closed; a failed write loses the message only.
void putMessage(Messages& messages, std::string_view text);

/// Writes a line together with others like it: not later than the next message of another kind, the
/// closing of the stream, or an interrupt.
void putCollectedLine(Messages& messages, std::string_view line);

/// putCollectedLine for a line that is composed where it is to stand, see collectComposed. False when it must be
/// composed elsewhere and put with putCollectedLine.
template <typename Compose>
[[nodiscard]] [[gnu::always_inline]] inline bool collectMessage(Messages& messages, std::size_t room,
                                                                const Compose& compose) {
  if (messages.stream == nullptr || messages.collected == nullptr) return false;
  const std::span<char> buffer(messages.collectedBytes.data(), messages.collectedLimit);
  return collectComposed(*messages.collected, buffer, room, compose);
}

/// Writes the lines that are collected.
void flushMessages(Messages& messages);

/// Flushes the message stream, closes it when it is a log file, and drops every later message.
void closeLog(Messages& messages);

/// A piece of a message: fixed text, or a file name that may be shortened in its middle.
struct MessagePiece {
  std::string_view text;
  bool isName = false;

  // NOLINTBEGIN(google-explicit-constructor,hicpp-explicit-conversions): a message is written as a list of its pieces
  MessagePiece(const char* fixedText) : text(fixedText) {}
  MessagePiece(std::string_view fixedText, bool name = false) : text(fixedText), isName(name) {}
  // NOLINTEND(google-explicit-constructor,hicpp-explicit-conversions)
};

[[nodiscard]] inline MessagePiece fileName(std::string_view name) { return {name, true}; }

/// Composes the pieces in the buffer. Where they do not fit, the file names are shortened in the middle, so that the
/// beginning of the message and the end of each name are seen.
void composeMessage(Messages& messages, std::initializer_list<MessagePiece> pieces);

/// composeMessage, for a routine that ends with this code.
[[nodiscard]] StatusCode failWith(Messages& messages, StatusCode code, std::initializer_list<MessagePiece> pieces);

/// composeMessage, then putMessage.
void putComposed(Messages& messages, std::initializer_list<MessagePiece> pieces);

/// Formats numbers into the buffer as printf would, then putMessage.
[[gnu::format(printf, 2, 3)]] void putFormatted(Messages& messages, const char* pattern, ...);

/// As putFormatted, on a terminal only.
[[gnu::format(printf, 2, 3)]] void putProgressFormatted(Messages& messages, const char* pattern, ...);

}  // namespace tarnvale
