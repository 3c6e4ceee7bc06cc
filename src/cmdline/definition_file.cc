#include "cmdline/definition_file.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/file_name.h"
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

Definition readDefinitionFile(const Environment& environment) {
  Definition definition;
  definition.dataExtension.assignCut(".TXT");
  definition.indexExtension.assignCut(".ISI");

  FileName name;
  bool fits = name.append(lookupFirstSetting(environment, {"QLX_SYSTEM", "VELDA_DBC", "DBC"}).value_or("/usr/qlc"));
  const auto terminal = lookupFirstSetting(environment, {"QLX_TERM", "VELDA_TERM", "TERM"});
  if (!terminal) return definition;
  fits = fits && name.append("/") && name.append(*terminal) && name.append(".def");

  DefinitionBytes bytes{};
  if (!fits || !readDefinition(name, bytes)) return definition;
  definition.extensionSeparator = bytes.extensionSeparator;
  setExtension(definition.dataExtension, bytes.dataExtension, bytes.extensionLength);
  setExtension(definition.indexExtension, bytes.indexExtension, bytes.extensionLength);
  return definition;
}

}  // namespace tarnvale
