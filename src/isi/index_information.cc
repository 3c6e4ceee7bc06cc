#include "isi/index_information.h"

#include <fcntl.h>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

bool findIndexFile(const FileNaming& naming, FileName& name) {
  FileNameParts parts;
  if (resolveFileName(naming, name) == 0 || !splitFileName(name, parts)) return false;
  if (parts.extension.empty() && !parts.extension.assign(naming.indexExtension)) return false;
  return findAndBuildFileName(naming, name, parts);
}

// The stored text of a header of either layout, and what is said of the layout. False for bytes that are no header.
bool readStoredText(const IsiHeader& header, std::string_view& text, const char*& notice) {
  const auto& version = header.versionWord.bytes;
  if (version[1] == (version[0] ^ 0xFFU)) {
    text = textOf(header.storedCommandLine);
    notice = "";
    return true;
  }
  const auto& old = reinterpret_cast<const OldIsiHeader&>(header);
  if (old.checkComplement != (old.check ^ 0xFFU)) return false;
  const std::string_view field(old.storedCommandLine.data(), old.storedCommandLine.size());
  text = field.substr(0, field.find('\0'));
  notice = "\nConverting from 8.x to 9.x format\n";
  return true;
}

}  // namespace

StatusCode openNamedIndex(const FileNaming& naming, Messages& messages, std::string_view asWritten, FileName& name,
                          int& fd) {
  name.assignCut(asWritten);
  if (!findIndexFile(naming, name)) {
    return failWith(messages, status::outputNameUnresolved,
                    {"Unable to resolve name for output file ", fileName(name)});
  }
  fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return fd >= 0 ? status::success
                 : failWith(messages, status::indexNotOpened, {"Can't open .isi file ", fileName(name)});
}

StatusCode showIndexInformation(const FileNaming& naming, Messages& messages, std::string_view asWritten,
                                StoredCommand& stored) {
  int fd = -1;
  const StatusCode status = openNamedIndex(naming, messages, asWritten, stored.indexName, fd);
  if (status != status::success) return status;
  IsiHeader header{};
  static_cast<void>(readAt(fd, &header, sizeof header, 0));  // a short file fails the check below
  closeFile(fd);

  std::string_view text;
  const char* notice = nullptr;
  if (!readStoredText(header, text, notice)) {
    return failWith(messages, status::notAnIndex, {"Not a valid .isi file ", fileName(stored.indexName)});
  }
  putMessage(messages, notice);
  if (text.empty()) return failWithoutKeyInformation(messages, stored.indexName);
  stored.command.assignCut(text);
  FixedText<maxStoredCommandLine + 16> shown;
  static_cast<void>(shown.join("\ntarnvale ", text, "\n"));
  putMessage(messages, shown);
  return status::success;
}

StatusCode failWithoutKeyInformation(Messages& messages, std::string_view indexName) {
  return failWith(messages, status::noStoredCommandLine, {"No key information available for ", fileName(indexName)});
}

FixedText<256> indexedDataName(int fd) {
  IsiHeader header{};
  static_cast<void>(readAt(fd, &header, sizeof header, 0));
  FixedText<256> name;
  name.assignCut(textOf(header.dataFileName));
  return name;
}

}  // namespace tarnvale
