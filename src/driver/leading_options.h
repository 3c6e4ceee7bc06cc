// The driver's own options, in front of the file specification.
#pragma once

#include "common/run_context.h"
#include "driver/message_stream.h"

namespace tarnvale {

/// Takes every argument that begins with a hyphen from the front. -11: option -i without a usable name, its message
/// printed. -12: the usage text was asked for and shown.
[[nodiscard]] StatusCode takeLeadingOptions(RunContext& run, Arguments& arguments);

}  // namespace tarnvale
