// The settings of the environment that the utility runs in: an `.ini` file and the process environment behind one
// lookup.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvale {

/// Reads the "environment" section of the `.ini` file once; a missing or unreadable file has no settings.
class Environment {
 public:
  /// The process environment alone.
  Environment() = default;
  explicit Environment(const char* iniFileName);

  /// The value of the section's first entry with this key, whatever the case of its letters; nothing when there is no
  /// such entry.
  [[nodiscard]] std::optional<std::string_view> fromIniFile(std::string_view key) const;

 private:
  struct Entry {
    std::string key;
    std::string value;
  };
  std::vector<Entry> entries_;
};

/// The value of a setting: of the `.ini` file when it is not empty there, else of the process environment; nothing when
/// it is set nowhere. The text holds as long as the environment.
[[nodiscard]] std::optional<std::string_view> lookupSetting(const Environment& environment, std::string_view name);

/// The first of the settings that is set.
[[nodiscard]] std::optional<std::string_view> lookupFirstSetting(const Environment& environment,
                                                                 std::initializer_list<std::string_view> names);

}  // namespace tarnvale
