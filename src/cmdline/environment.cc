#include "cmdline/environment.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>

#include "cmdline/ini_lines.h"
#include "common/character_case.h"
#include "common/file_name.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::string_view sectionWanted = "environment";
constexpr std::string_view blanks = " \t";

std::string_view withoutTrailingBlanks(std::string_view text) {
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::string_view withoutBlanks(std::string_view text) {
  text = withoutTrailingBlanks(text);
  return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

// The name of the section that the line opens, or nothing.
std::optional<std::string_view> sectionName(std::string_view line) {
  if (!line.starts_with('[')) return std::nullopt;
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  return withoutBlanks(line.substr(1, end - 1));
}

bool findSection(IniLines& lines) {
  while (readIniLine(lines) > 0) {
    const auto name = sectionName(lines.line);
    if (name && compareNoCase(*name, sectionWanted) == 0) return true;
  }
  return false;
}

}  // namespace

Environment::Environment(const char* iniFileName) {
  IniLines lines;
  lines.fd = ::open(iniFileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (lines.fd < 0) return;
  if (isRegularFile(lines.fd) && findSection(lines)) {
    while (readIniLine(lines) > 0 && !lines.line.starts_with('[')) {
      const std::size_t equals = lines.line.find('=');
      if (equals == std::string_view::npos) continue;
      // Blanks before a key belong to it.
      entries_.push_back({std::string(withoutTrailingBlanks(lines.line.substr(0, equals))),
                          std::string(withoutBlanks(lines.line.substr(equals + 1)))});
    }
  }
  closeFile(lines.fd);
}

std::optional<std::string_view> Environment::fromIniFile(std::string_view key) const {
  const auto found =
      std::ranges::find_if(entries_, [&](const Entry& entry) { return compareNoCase(entry.key, key) == 0; });
  if (found == entries_.end()) return std::nullopt;
  return found->value;
}

std::optional<std::string_view> lookupSetting(const Environment& environment, std::string_view name) {
  const auto value = environment.fromIniFile(name);
  if (value && !value->empty()) return value;
  FileName variable;
  if (!variable.assign(name)) return std::nullopt;
  const char* const fromProcess = std::getenv(variable.c_str());
  if (fromProcess == nullptr) return std::nullopt;
  return fromProcess;
}

std::optional<std::string_view> lookupFirstSetting(const Environment& environment,
                                                   std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) {
    if (const auto value = lookupSetting(environment, name)) return value;
  }
  return std::nullopt;
}

}  // namespace tarnvale
