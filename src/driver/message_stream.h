// The message stream of a run: the log option, the echoed arguments and the banner.
#pragma once

#include <cstdio>
#include <span>

#include "common/messages.h"

namespace tarnvale {

inline constexpr const char* modeName = "INDEX";

using Arguments = std::span<char* const>;

/// Answers --help and --version, alone on the command line. False for any other one.
[[nodiscard]] bool answerQuestion(Arguments arguments, std::FILE* output);

/// Makes `output` the message stream, or the log file that the log option at the front of the arguments names (-l or -q
/// and a name, when more than it is there); the option is taken from them. A log that cannot be opened changes nothing.
void openMessages(Messages& messages, std::FILE* output, Arguments& arguments);

/// Echoes the argument vector where the stream is not a terminal, and writes the banner.
void startMessages(Messages& messages, Arguments arguments);

}  // namespace tarnvale
