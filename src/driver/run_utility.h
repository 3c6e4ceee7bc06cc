// One complete run of the utility.
#pragma once

#include <cstdio>

#include "driver/run_context.h"

namespace tarnvale {

/// Runs the utility on an argument vector, with `run`, a new record; messages go to `output` until a
/// log is opened. 0 on success, 1 when the usage text answered a `?` or a file could not be closed, else a negative
/// StatusCode.
[[nodiscard]] StatusCode runUtility(RunContext& run, int argc, char* const* argv, std::FILE* output);

}  // namespace tarnvale
