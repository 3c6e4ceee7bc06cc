#include "cmdline/file_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "cmdline/character_case.h"
#include "cmdline/settings.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr mode_t everyoneReadsAndWrites = 0666;  // less the process's file-creation mask

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
std::optional<std::string_view> volumeDirectory(const RunContext& run, std::string_view volume) {
  for (const std::string_view prefix : {"QLXVOL_", "QLX_", "VELDA_"}) {
    FileName variable;
    if (!variable.join(prefix, volume)) return std::nullopt;
    for (char* c = variable.data() + prefix.size(); *c != '\0'; ++c) *c = upperCaseChar(*c);
    if (const auto directory = lookupSetting(run, variable)) return directory;
  }
  return std::nullopt;
}

// Replaces `cut`, a name without its volume, by the name in the volume's directory. False when it is too long.
bool moveIntoVolume(FileName& name, std::string_view directory, std::string_view cut, std::size_t capacity,
                    char extensionSeparator) {
  FileName tail;
  if (!tail.assign(cut)) return false;
  if (const auto slash = slashForSeparator(tail, extensionSeparator)) tail.data()[*slash] = extensionSeparator;
  const bool closed = directory.ends_with(':') || directory.ends_with('/');
  const std::string_view slash = closed ? "" : "/";
  if (directory.size() + slash.size() + tail.size() >= capacity) return false;
  return name.join(directory, slash, tail.view());
}

bool canBeOpened(const char* name) {
  int fd = ::open(name, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const bool opened = fd >= 0;
  closeFile(fd);
  return opened;
}

}  // namespace

std::size_t resolveFileName(const RunContext& run, FileName& name, std::size_t capacity, char extensionSeparator) {
  if (name.view().find('|') != std::string_view::npos) return name.size();
  const std::size_t colon = name.view().find(':');
  if (colon != std::string_view::npos) {
    if (const auto directory = volumeDirectory(run, name.view().substr(colon + 1))) {
      const bool moved = moveIntoVolume(name, *directory, name.view().substr(0, colon), capacity, extensionSeparator);
      return moved ? name.size() : 0;
    }
  }
  const bool fewSlashes = std::ranges::count(name.view(), '/') <= 1;
  if (fewSlashes || colon != std::string_view::npos) {
    const auto slash = slashForSeparator(name, extensionSeparator);
    if (slash && !mayBeDirectory(name.view().substr(0, *slash))) name.data()[*slash] = extensionSeparator;
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

bool buildFileName(const RunContext& run, FileName& name, const FileNameParts& parts) {
  if (!name.join(parts.drive.view(), parts.directory.view(), parts.baseName.view(), parts.extension.view())) {
    return false;
  }
  if (run.foldFileNameCase) lowerCaseName(name);
  return true;
}

std::size_t searchFilePath(RunContext& run, std::string_view name, FileName& directory, std::string_view path) {
  if (name.find('/') != std::string_view::npos) return 0;
  if (!run.scratchPath.assign(name) || canBeOpened(run.scratchPath.c_str())) return 0;
  while (!path.empty()) {
    const std::string_view element = path.substr(0, path.find(':'));
    path.remove_prefix(std::min(path.size(), element.size() + 1));
    if (element.empty() || !run.scratchPath.join(element, "/", name)) continue;
    if (canBeOpened(run.scratchPath.c_str()) && directory.join(element, "/")) return directory.size();
  }
  return 0;
}

bool findAndBuildFileName(RunContext& run, FileName& name, FileNameParts& parts) {
  if (run.searchPath != nullptr && parts.directory.empty()) {
    if (!buildFileName(run, name, parts)) return false;
    searchFilePath(run, name, parts.directory, run.searchPath);
  }
  return buildFileName(run, name, parts);
}

int createFile(const char* name, int keepFd1, int keepFd2) {
  const int created = ::open(name, O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
  if (created >= 0) return created;
  int existing = ::open(name, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (existing < 0) return -1;
  const bool kept = !isRegularFile(existing) || isSameFile(existing, keepFd1) || isSameFile(existing, keepFd2);
  if (!kept && ::ftruncate(existing, 0) == 0) return existing;
  closeFile(existing);
  errno = EEXIST;
  return -1;
}

void lowerCaseName(FileName& name) {
  for (char* c = name.data(); *c != '\0'; ++c) *c = lowerCaseChar(*c);
}

}  // namespace tarnvale
