// Settings of the environment the utility runs in: the `.ini` file and the process environment behind one lookup.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

inline constexpr std::size_t maxSettingLength = 4096;  // characters of a value in the `.ini` file
using SettingText = FixedText<maxSettingLength + 1>;

/// The value of a setting: from the "environment" section of the `.ini` file when one is named and has a non-empty
/// value there, else from the process environment; nothing when it is set nowhere. The text holds until the next
/// lookup.
[[nodiscard]] std::optional<std::string_view> lookupSetting(const RunContext& run, std::string_view name);

/// The first of the settings that is set.
[[nodiscard]] std::optional<std::string_view> lookupFirstSetting(const RunContext& run,
                                                                 std::initializer_list<std::string_view> names);

/// Looks up `key` in `section` of a profile file; names are compared without regard to case. Leaves the value, or else
/// `defaultText`, cut to the buffer, in `value` and returns its length. A missing file yields the default.
std::size_t readProfileString(std::string_view section, std::string_view key, std::string_view defaultText,
                              SettingText& value, const char* fileName);

}  // namespace tarnvale
