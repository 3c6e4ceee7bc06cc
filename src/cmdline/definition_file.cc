#include "cmdline/definition_file.h"

#include <fcntl.h>

#include <array>
#include <cstring>

#include "cmdline/settings.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::size_t maxExtensionLength = 4;

// The bytes of the file that matter, from offset 512 on.
struct DefinitionBytes {
  char extensionSeparator;                                  // 512
  char unused;                                              // 513
  unsigned char extensionLength;                            // 514
  std::array<char, maxExtensionLength + 1> dataExtension;   // 515  ended by a NUL
  std::array<char, maxExtensionLength + 1> indexExtension;  // 520  ended by a NUL
};
constexpr std::uint64_t definitionOffset = 512;
static_assert(offsetof(DefinitionBytes, dataExtension) == 515 - definitionOffset);
static_assert(offsetof(DefinitionBytes, indexExtension) == 520 - definitionOffset);

void setExtension(FixedText<6>& extension, const std::array<char, maxExtensionLength + 1>& bytes, std::size_t length) {
  const std::string_view text(bytes.data(), length);
  static_cast<void>(extension.join(".", text.substr(0, text.find('\0'))));
}

bool readDefinition(const FileName& name, DefinitionBytes& definition) {
  int fd = ::open(name.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t count = isRegularFile(fd) ? readAt(fd, &definition, sizeof definition, definitionOffset) : -1;
  closeFile(fd);
  if (count < 0) return false;
  const auto wanted = static_cast<ssize_t>(offsetof(DefinitionBytes, indexExtension) + definition.extensionLength + 1);
  return definition.extensionLength <= maxExtensionLength && count >= std::min<ssize_t>(wanted, sizeof definition);
}

}  // namespace

void readDefinitionFile(RunContext& run) {
  run.extensionSeparator = '.';
  run.defaultDataExtension.assignCut(".TXT");
  run.defaultIndexExtension.assignCut(".ISI");

  FileName name;
  bool fits = name.append(lookupFirstSetting(run, {"QLX_SYSTEM", "VELDA_DBC", "DBC"}).value_or("/usr/qlc"));
  const auto terminal = lookupFirstSetting(run, {"QLX_TERM", "VELDA_TERM", "TERM"});
  if (!terminal) return;
  fits = fits && name.append("/") && name.append(*terminal) && name.append(".def");

  DefinitionBytes definition{};
  if (!fits || !readDefinition(name, definition)) return;
  run.extensionSeparator = definition.extensionSeparator;
  setExtension(run.defaultDataExtension, definition.dataExtension, definition.extensionLength);
  setExtension(run.defaultIndexExtension, definition.indexExtension, definition.extensionLength);
}

}  // namespace tarnvale
