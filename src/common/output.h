// What the user reads: messages, progress lines, and the composing of messages with values.
#pragma once

#include <initializer_list>
#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

/// Writes the text unchanged and flushes. Dropped when the log is closed; a failed write loses the message only.
void PutMessage(RunContext& run, std::string_view text);

/// As PutMessage, on a terminal only.
void PutProgress(RunContext& run, std::string_view text);

/// Flushes the message stream, closes it when it is a log file, and drops every later message.
void CloseLog(RunContext& run);

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

/// Composes the pieces in `messageBuffer`. Where they do not fit, the file names are shortened in the middle, so that
/// the beginning of the message and the end of each name are seen.
void composeMessage(RunContext& run, std::initializer_list<MessagePiece> pieces);

/// composeMessage, then PutMessage.
void putComposed(RunContext& run, std::initializer_list<MessagePiece> pieces);

/// Formats numbers into `messageBuffer` as printf would, then PutMessage.
[[gnu::format(printf, 2, 3)]] void putFormatted(RunContext& run, const char* pattern, ...);

/// As putFormatted, but PutProgress.
[[gnu::format(printf, 2, 3)]] void putProgressFormatted(RunContext& run, const char* pattern, ...);

}  // namespace tarnvale
