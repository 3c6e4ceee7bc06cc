// The two temporary work files of the sort: made and removed, one next to the other.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Creates both work files in `tempPath`, else in TMPDIR, else in /tmp, and opens them; work file 1 becomes the file
/// being written, work file 2 the one being read. -110 when one cannot be created or its name does not fit.
[[nodiscard]] StatusCode createWorkFiles(RunContext& run);

/// Closes the work files that are open and deletes them unless `debugMode` is set. Async-signal-safe; interrupts must
/// be held by the caller.
void removeWorkFiles(RunContext& run);

}  // namespace tarnvale
