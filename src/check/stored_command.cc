#include "check/stored_command.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "cmdline/command_line.h"
#include "common/character_case.h"

namespace tarnvale {

namespace {

constexpr std::size_t longestStandardExtension = 5;  // with its dot

std::string_view bareName(std::string_view name) { return name.substr(name.rfind('/') + 1); }
std::string_view stemOf(std::string_view name) { return name.substr(0, name.rfind('.')); }

// The name as it was written, or folded to lower case.
bool isName(std::string_view written, std::string_view name) {
  return written.size() == name.size() && (written == name || std::ranges::equal(written, name, {}, lowerCaseChar));
}

// A name without an extension has got the one that was the standard then, if any; a dot at its end stands for none.
bool becomes(std::string_view written, std::string_view name) {
  if (isName(written, name)) return true;
  if (written.ends_with('.')) return isName(stemOf(written), name);
  if (written.find('.') != std::string_view::npos) return false;
  const std::string_view stem = stemOf(name);
  return stem.size() != name.size() && name.size() - stem.size() <= longestStandardExtension && isName(written, stem);
}

// The last "/" of a name may have stood for the extension separator, which may have been another one then.
bool becomesWithSeparator(std::string_view written, std::string_view name) {
  const std::size_t slash = written.rfind('/');
  if (slash == std::string_view::npos || slash == 0) return false;
  std::string replaced(written);
  replaced[slash] = '.';
  std::string_view bare = bareName(replaced);
  const std::size_t place = bare.rfind('.');
  if (place < name.size() && std::ispunct(static_cast<unsigned char>(name[place])) != 0) replaced[slash] = name[place];
  return becomes(bare, name);
}

bool namesDirectory(std::string_view name) { return name.find('/') != std::string_view::npos; }

// What an index name lacks before its extension comes from the data file.
std::string writtenIndexName(const Settings& settings, std::string_view dataName) {
  const std::string_view written = settings.indexName;
  const std::string_view bare = bareName(written);
  return stemOf(bare).empty() ? std::string(stemOf(dataName)).append(bare) : std::string(written);
}

// Option z, or the setting that stands for it and may have been another one when the index was built.
bool hasOptionZ(const Settings& settings, const FileNaming& naming) {
  const std::string_view standard = lookupSetting(*naming.environment, "QLX_NOPATH").value_or("");
  return settings.discardPathInHeader && compareNoCase(standard, "ON") != 0;
}

}  // namespace

std::optional<Settings> readStoredCommand(const IsiHeader& header, const Environment& environment, Messages& messages,
                                          Report& report) {
  messages.buffer.clear();
  ParsedCommand command = parseCommandLine(textOf(header.storedCommandLine), environment, messages,
                                           [](const Settings& /*settings*/) { return status::success; });
  if (command.status == status::success && !command.settings.isBuild()) command.status = status::noStoredCommandLine;
  if (command.status == status::success) return command.settings;
  if (messages.buffer.empty()) {
    report.add("the command stored in the index cannot be used (code %d)", command.status);
  } else {
    report.add("the command stored in the index cannot be used: %s", messages.buffer.c_str());
  }
  return std::nullopt;
}

bool mayName(std::string_view written, std::string_view name) {
  for (const std::string_view text : {written, written.substr(0, written.find(':'))}) {  // a volume may follow
    if (becomes(bareName(text), name) || becomesWithSeparator(text, name)) return true;
  }
  return false;
}

void checkNames(const Settings& settings, const IsiHeader& header, const TrackedFiles& files, const FileNaming& naming,
                Report& report) {
  const TrackedFile& data = files[FileRole::input];
  const std::string_view stored = textOf(header.dataFileName);
  const std::string_view dataName = bareName(stored);
  if (!mayName(settings.dataName, dataName) || (data.isOpen() && bareName(data.name) != dataName)) {
    report.add("header, data file: \"%s\", but the command is for \"%s\"", std::string(stored).c_str(),
               settings.dataName.c_str());
  } else if (hasOptionZ(settings, naming) && namesDirectory(stored)) {
    report.add("header, data file: \"%s\" with a directory, which option z leaves out", std::string(stored).c_str());
  }
  const std::string index = writtenIndexName(settings, dataName);
  if (mayName(index, bareName(files[FileRole::index].name))) return;
  report.note("note: the command stored in the index is for \"" + index + "\"");
}

}  // namespace tarnvale
