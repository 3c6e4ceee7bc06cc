// The stored command text of an index that moves to a new file.
#pragma once

#include <span>
#include <string_view>

#include "common/status_code.h"

namespace tarnvale {

/// Replaces the index file's name in a stored command (the text between its first two commas) by the one in the run's
/// own command. -164 a stored command without two commas, -165 an own one without, -166 the result does not fit.
[[nodiscard]] StatusCode replaceIndexName(std::span<char> stored, std::string_view ownCommand);

}  // namespace tarnvale
