#include "cmdline/settings.h"

#include <fcntl.h>

#include <cstdlib>

#include "cmdline/character_case.h"
#include "cmdline/profile_lines.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

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

bool findSection(ProfileLines& lines, std::string_view section) {
  while (readIniLine(lines) > 0) {
    const auto name = sectionName(lines.line);
    if (name && compareNoCase(*name, section) == 0) return true;
  }
  return false;
}

// The value of the key in the section that the reader stands in, or nothing. Blanks before a key belong to it.
std::optional<std::string_view> findValue(ProfileLines& lines, std::string_view key) {
  while (readIniLine(lines) > 0 && !lines.line.starts_with('[')) {
    const std::size_t equals = lines.line.find('=');
    if (equals == std::string_view::npos) continue;
    if (compareNoCase(withoutTrailingBlanks(lines.line.substr(0, equals)), key) != 0) continue;
    return withoutBlanks(lines.line.substr(equals + 1));
  }
  return std::nullopt;
}

}  // namespace

std::size_t readProfileString(std::string_view section, std::string_view key, std::string_view defaultText,
                              SettingText& value, const char* fileName) {
  value.assignCut(defaultText);
  ProfileLines lines;
  lines.fd = ::open(fileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (lines.fd < 0) return value.size();
  if (isRegularFile(lines.fd) && findSection(lines, section)) {
    if (const auto found = findValue(lines, key)) value.assignCut(*found);
  }
  closeFile(lines.fd);
  return value.size();
}

std::optional<std::string_view> lookupSetting(const RunContext& run, std::string_view name) {
  static SettingText value;
  if (!run.iniFileName.empty() && readProfileString("environment", name, {}, value, run.iniFileName.c_str()) > 0) {
    return value.view();
  }
  FileName variable;
  if (!variable.assign(name)) return std::nullopt;
  const char* const fromEnvironment = std::getenv(variable.c_str());
  if (fromEnvironment == nullptr) return std::nullopt;
  return fromEnvironment;
}

std::optional<std::string_view> lookupFirstSetting(const RunContext& run,
                                                   std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) {
    if (const auto value = lookupSetting(run, name)) return value;
  }
  return std::nullopt;
}

}  // namespace tarnvale
