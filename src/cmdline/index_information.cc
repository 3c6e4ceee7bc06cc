// Two layouts of the header are known, one row each: where two complementary bytes tell the layout, and where the
// command line stands.
#include "cmdline/index_information.h"

#include <fcntl.h>

#include <algorithm>
#include <array>

#include "cmdline/file_names.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::size_t headerSize = 1024;
using HeaderBytes = std::array<char, headerSize>;

struct HeaderLayout {
  std::size_t checkOffset;  // a byte and its complement
  std::size_t textOffset;
  std::size_t textSize;       // bytes of the field
  std::size_t maxTextLength;  // characters used of it
  const char* notice;
};
constexpr HeaderLayout headerLayouts[] = {
    {4, 496, maxStoredCommandLine + 1, maxStoredCommandLine, ""},
    {52, 128, 256, 256, "\nConverting from 8.x to 9.x format\n"},
};

const HeaderLayout* layoutOf(const HeaderBytes& header) {
  for (const HeaderLayout& layout : headerLayouts) {
    const auto first = static_cast<unsigned char>(header[layout.checkOffset]);
    const auto second = static_cast<unsigned char>(header[layout.checkOffset + 1]);
    if (second == (first ^ 0xFFU)) return &layout;
  }
  return nullptr;
}

// Composes the text and the name of the index; the run then has no output name.
StatusCode fail(RunContext& run, StatusCode code, const char* text) {
  composeMessage(run, {text, fileName(run.outputName)});
  run.outputName.clear();
  return code;
}

StatusCode findIndexFile(RunContext& run) {
  constexpr const char* unresolved = "Unable to resolve name for output file ";
  run.outputName = run.inputName;
  if (resolveFileName(run, run.outputName, nameCapacity, run.extensionSeparator) == 0) {
    return fail(run, status::outputNameUnresolved, unresolved);
  }
  FileNameParts& parts = run.indexFileParts;
  bool fits = splitFileName(run.outputName, parts);
  if (fits && parts.extension.empty()) fits = parts.extension.assign(run.defaultIndexExtension);
  if (!fits || !findAndBuildFileName(run, run.outputName, parts)) {
    return fail(run, status::outputNameUnresolved, unresolved);
  }
  return status::success;
}

}  // namespace

StatusCode openNamedIndex(RunContext& run, int& fd) {
  const StatusCode status = findIndexFile(run);
  if (status != status::success) return status;
  fd = ::open(run.outputName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return fd >= 0 ? status::success : fail(run, status::indexNotOpened, "Can't open .isi file ");
}

StatusCode showIndexInformation(RunContext& run, StoredCommandLine& stored) {
  int fd = -1;
  const StatusCode status = openNamedIndex(run, fd);
  if (status != status::success) return status;
  HeaderBytes header{};
  static_cast<void>(readAt(fd, header.data(), header.size(), 0));  // a short file fails the check below
  closeFile(fd);

  const HeaderLayout* const layout = layoutOf(header);
  if (layout == nullptr) return fail(run, status::notAnIndex, "Not a valid .isi file ");
  PutMessage(run, layout->notice);
  const std::string_view field(header.data() + layout->textOffset, layout->textSize);
  stored.assignCut(field.substr(0, std::min(field.find('\0'), layout->maxTextLength)));
  if (stored.empty()) return failWithoutKeyInformation(run);

  FixedText<maxStoredCommandLine + 16> shown;
  static_cast<void>(shown.join("\ntarnvale ", stored.view(), "\n"));
  PutMessage(run, shown);
  return status::success;
}

FixedText<256> indexedDataName(int fd) {
  constexpr std::size_t nameOffset = 240;
  std::array<char, 256> field{};
  static_cast<void>(readAt(fd, field.data(), field.size(), nameOffset));
  FixedText<256> name;
  name.assignCut({field.data(), std::min(std::string_view(field.data(), field.size()).find('\0'), field.size())});
  return name;
}

StatusCode failWithoutKeyInformation(RunContext& run) {
  return fail(run, status::noStoredCommandLine, "No key information available for ");
}

}  // namespace tarnvale
