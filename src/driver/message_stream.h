// The message stream of a run: the log option, the echoed arguments and the banner.
#pragma once

#include <span>

#include "common/run_context.h"

namespace tarnvale {

inline constexpr const char* versionText = "Version 1.0.0  24 Nov 2026";

using Arguments = std::span<char* const>;

/// Takes the log option (-l or -q and a name) from the front of the arguments when more than it is there, and makes the
/// log file the message stream. A log that cannot be opened changes nothing.
void openLog(RunContext& run, Arguments& arguments);

/// Echoes the argument vector where the stream is not a terminal, and writes the banner.
void startMessages(RunContext& run, Arguments arguments);

}  // namespace tarnvale
