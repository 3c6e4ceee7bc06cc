// The messages of a failed run: one table of codes and texts per phase.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Writes the text of the code for a failure of the command line or the opening of files, and a line end. A code
/// without a fixed text is told by what the failing routine left in `messageBuffer`.
void putParseFailure(RunContext& run, StatusCode status);

/// Writes the message of a failed build.
void putBuildFailure(RunContext& run, StatusCode status);

/// Writes the message of a failed compaction.
void putCompactFailure(RunContext& run, StatusCode status);

}  // namespace tarnvale
