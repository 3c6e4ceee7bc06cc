// The usage text.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Writes the usage text to the message stream.
void ShowUsage(RunContext& run);

}  // namespace tarnvale
