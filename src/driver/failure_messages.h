// The messages of a failed run: one table of codes and texts per phase.
#pragma once

#include "common/failure.h"
#include "common/messages.h"

namespace tarnvale {

/// Writes the text of the code for a failure of the command line or the opening of files, and a line end. For a code
/// without a fixed text that is what the failing routine left in the messages' buffer.
void putParseFailure(StatusCode status, Messages& messages);

/// Writes the message of a failed build. `files` have the names.
void putBuildFailure(const Failure& failure, const TrackedFiles& files, Messages& messages);

/// Writes the message of a failed compaction.
void putCompactFailure(const Failure& failure, const TrackedFiles& files, Messages& messages);

}  // namespace tarnvale
