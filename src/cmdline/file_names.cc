#include "cmdline/file_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "cmdline/definition_file.h"
#include "common/character_case.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

// True when the text names a directory, or might: a place that may not be looked at counts as one.
bool mayBeDirectory(std::string_view text) {
  FileName name;
  if (!name.assign(text)) return false;
  struct stat information {};
  if (::stat(name.c_str(), &information) != 0) return errno == EACCES;
  return S_ISDIR(information.st_mode);
}

// The position of the last "/" behind the first character, when no extension separator stands behind it.
std::optional<std::size_t> slashForSeparator(std::string_view name, char extensionSeparator) {
  for (std::size_t i = name.size(); i-- > 1;) {
    if (name[i] == extensionSeparator) return std::nullopt;
    if (name[i] == '/') return i;
  }
  return std::nullopt;
}

// The directory of a volume: the first of three variables that is set.
std::optional<std::string_view> volumeDirectory(const Environment& environment, std::string_view volume) {
  for (const std::string_view prefix : {"QLXVOL_", "QLX_", "VELDA_"}) {
    FileName variable;
    if (!variable.join(prefix, volume)) return std::nullopt;
    for (char* c = variable.data() + prefix.size(); *c != '\0'; ++c) *c = upperCaseChar(*c);
    if (const auto directory = lookupSetting(environment, variable)) return directory;
  }
  return std::nullopt;
}

// Replaces `cut`, a name without its volume, by the name in the volume's directory. False when it is too long.
bool moveIntoVolume(FileName& name, std::string_view directory, std::string_view cut, char extensionSeparator) {
  FileName tail;
  if (!tail.assign(cut)) return false;
  if (const auto slash = slashForSeparator(tail, extensionSeparator)) tail.data()[*slash] = extensionSeparator;
  const bool closed = directory.ends_with(':') || directory.ends_with('/');
  const std::string_view slash = closed ? "" : "/";
  if (directory.size() + slash.size() + tail.size() >= nameCapacity) return false;
  return name.join(directory, slash, tail.view());
}

bool canBeOpened(const char* name) {
  int fd = ::open(name, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const bool opened = fd >= 0;
  closeFile(fd);
  return opened;
}

}  // namespace

FileNaming readFileNaming(const Environment& environment) {
  FileNaming naming;
  naming.environment = &environment;
  naming.searchPath = lookupFirstSetting(environment, {"QLX_PATH", "VELDA_DBPATH", "DBPATH"}).value_or("");
  const auto nameCase = lookupFirstSetting(environment, {"QLX_FNC", "VELDA_FNC"});
  naming.foldCase = nameCase && compareNoCase(*nameCase, "Mixed") != 0;
  const Definition definition = readDefinitionFile(environment);
  naming.extensionSeparator = definition.extensionSeparator;
  naming.dataExtension = definition.dataExtension;
  naming.indexExtension = definition.indexExtension;
  return naming;
}

std::size_t resolveFileName(const FileNaming& naming, FileName& name) {
  const char separator = naming.extensionSeparator;
  if (name.view().find('|') != std::string_view::npos) return name.size();
  const std::size_t colon = name.view().find(':');
  if (colon != std::string_view::npos) {
    if (const auto directory = volumeDirectory(*naming.environment, name.view().substr(colon + 1))) {
      return moveIntoVolume(name, *directory, name.view().substr(0, colon), separator) ? name.size() : 0;
    }
  }
  const bool fewSlashes = std::ranges::count(name.view(), '/') <= 1;
  if (fewSlashes || colon != std::string_view::npos) {
    const auto slash = slashForSeparator(name, separator);
    if (slash && !mayBeDirectory(name.view().substr(0, *slash))) name.data()[*slash] = separator;
  }
  return name.size();
}

bool splitFileName(std::string_view name, FileNameParts& parts) {
  const std::size_t slash = name.rfind('/');
  const std::string_view directory = slash == std::string_view::npos ? "" : name.substr(0, slash + 1);
  const std::string_view rest = name.substr(directory.size());
  const std::size_t dot = std::min(rest.rfind('.'), rest.size());
  parts.drive.clear();
  return parts.directory.assign(directory) && parts.baseName.assign(rest.substr(0, dot)) &&
         parts.extension.assign(rest.substr(dot));
}

bool buildFileName(const FileNaming& naming, FileName& name, const FileNameParts& parts) {
  if (!name.join(parts.drive.view(), parts.directory.view(), parts.baseName.view(), parts.extension.view())) {
    return false;
  }
  if (naming.foldCase) std::transform(name.data(), name.data() + name.size(), name.data(), lowerCaseChar);
  return true;
}

std::size_t searchFilePath(const FileNaming& naming, std::string_view name, FileName& directory) {
  FileName tried;
  if (name.find('/') != std::string_view::npos) return 0;
  if (!tried.assign(name) || canBeOpened(tried.c_str())) return 0;
  for (std::string_view path = naming.searchPath; !path.empty();) {
    const std::string_view element = path.substr(0, path.find(':'));
    path.remove_prefix(std::min(path.size(), element.size() + 1));
    if (element.empty() || !tried.join(element, "/", name)) continue;
    if (canBeOpened(tried.c_str()) && directory.join(element, "/")) return directory.size();
  }
  return 0;
}

bool findAndBuildFileName(const FileNaming& naming, FileName& name, FileNameParts& parts) {
  if (!naming.searchPath.empty() && parts.directory.empty()) {
    if (!buildFileName(naming, name, parts)) return false;
    searchFilePath(naming, name, parts.directory);
  }
  return buildFileName(naming, name, parts);
}

bool findInputName(const FileNaming& naming, std::string_view extension, FileName& name, FileNameParts& parts) {
  if (resolveFileName(naming, name) == 0 || !splitFileName(name, parts)) return false;
  if (parts.extension.empty() && !parts.extension.assign(extension)) return false;
  // A name that ends with a dot has no extension.
  if (parts.extension.view().ends_with('.')) parts.extension.truncate(parts.extension.size() - 1);
  return findAndBuildFileName(naming, name, parts);
}

}  // namespace tarnvale
