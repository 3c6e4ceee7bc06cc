// The driver's own options, in front of the file specification.
#pragma once

#include "common/fixed_text.h"
#include "common/status_code.h"
#include "driver/message_stream.h"
#include "sort/sorter.h"

namespace tarnvale {

struct LeadingOptions {
  FixedText<260> iniFileName;  // empty: settings come from the environment alone
  SortLimits sort;
};

/// Takes every argument that begins with a hyphen from the front. -11: option -i without a usable name, its message
/// printed. -12: the usage text was asked for and shown.
[[nodiscard]] StatusCode takeLeadingOptions(LeadingOptions& options, Messages& messages, Arguments& arguments);

}  // namespace tarnvale
