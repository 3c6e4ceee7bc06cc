// An index found, opened and locked against compactions, and what was asked of it written.
#pragma once

#include "read/read_options.h"

namespace tarnvale {

/// Writes the header or the entries to the standard output. The exit status; a failure is told on the standard error.
[[nodiscard]] int readIndex(const ReadOptions& options);

}  // namespace tarnvale
