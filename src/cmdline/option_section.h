// The option section: option letters, key specifications and `p` options in any order.
#pragma once

#include <string_view>

#include "cmdline/settings.h"
#include "common/status_code.h"

namespace tarnvale {

/// Reads the section, which begins with the "-" or ";" that opens it, into the settings. Returns 0, the code
/// of the first item that is wrong, or -12 when the usage text is asked for.
[[nodiscard]] StatusCode parseOptionSection(Settings& settings, std::string_view section);

}  // namespace tarnvale
