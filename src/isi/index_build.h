// *Build*: a data file becomes an index file.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Builds the index of the open data file into the open, empty output file. 0, -9, -151, -157, or the code of the sort
/// phase; `outputFd` stays open.
[[nodiscard]] StatusCode buildIndex(RunContext& run);

/// False when the data file turned out not to be what the options declare; its index must not be kept.
[[nodiscard]] bool isInDeclaredFormat(const RunContext& run);

}  // namespace tarnvale
