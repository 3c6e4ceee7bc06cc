#include "isi/index_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "common/interrupt_hold.h"
#include "common/limits.h"
#include "common/posix_file.h"
#include "isi/index_information.h"

namespace tarnvale {

namespace {

// The parts of the output's name: what was not given is taken from the input. `name` is the resolved name.
bool completeIndexParts(const FileNaming& naming, const FileNameParts& input, std::string_view extension,
                        FileName& name, FileNameParts& parts) {
  if (!splitFileName(name, parts)) return false;
  if (parts.baseName.empty()) parts.baseName = input.baseName;
  if (parts.extension.empty() && !parts.extension.assign(extension)) return false;
  if (!findAndBuildFileName(naming, name, parts)) return false;
  if (parts.drive.empty() && parts.directory.empty()) {
    parts.drive = input.drive;
    parts.directory = input.directory;
  }
  return buildFileName(naming, name, parts);
}

bool isNamedLike(const FileNameParts& a, const FileNameParts& b) {
  return a.baseName.view() == b.baseName.view() && a.extension.view() == b.extension.view();
}

bool isFileNamed(const char* name, int openFd) {
  int fd = ::open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const bool same = fd >= 0 && isSameFile(fd, openFd);
  closeFile(fd);
  return same;
}

// True when the existing file of the name is the input itself, by another name or through a link; or, in a compaction,
// the data file that the index is over.
bool isInputFile(const char* name, int inputFd, bool compacts) {
  if (isFileNamed(name, inputFd)) return true;
  if (!compacts) return false;
  int output = ::open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const bool same = output >= 0 && isFileNamed(indexedDataName(inputFd).c_str(), output);
  closeFile(output);
  return same;
}

StatusCode createIndexFile(TrackedFiles& files, Messages& messages, bool compacts) {
  TrackedFile& index = files[FileRole::index];
  const int inputFd = files[FileRole::input].fd;
  if (isInputFile(index.name.c_str(), inputFd, compacts)) return status::outputIsInput;
  if (!isFileNamed(index.name.c_str(), files.messageFd)) {  // nor into the file that takes the messages
    const InterruptHold hold;
    index.fd = createFile(index.name.c_str(), {inputFd});
    index.atEnd = AtEnd::discardAfterFailure;
  }
  if (index.isOpen()) return status::success;
  // Opened for the indexing alone, the input is made accessible again for those who use it.
  static_cast<void>(::fchmod(inputFd, everyoneReadsAndWrites));
  return failWith(messages, status::outputNotCreated, {"Can't create output file ", fileName(index.name)});
}

}  // namespace

StatusCode openIndexToCompact(TrackedFiles& files, Messages& messages, const Settings& settings,
                              const FileNaming& naming, FileNameParts& parts) {
  TrackedFile& input = files[FileRole::input];
  input.name = settings.dataName;
  if (!findInputName(naming, ".ISI", input.name, parts)) {
    return failWith(messages, status::dataNameUnresolved,
                    {"Unable to resolve name for source file ", fileName(input.name)});
  }
  if (!openRegular(input, O_RDWR)) {
    return failWith(messages, status::dataFileNotOpened,
                    {"Unable to open input ISI file for compact: ", fileName(input.name), "\n"});
  }
  if (messages.debugMode) putComposed(messages, {"Opened ", fileName(input.name), " as input file\n"});
  return status::success;
}

StatusCode openIndexFile(TrackedFiles& files, Messages& messages, const Settings& settings, const FileNaming& naming,
                         const FileNameParts& inputParts, FileNameParts& parts, bool& inPlace) {
  TrackedFile& index = files[FileRole::index];
  index.name = settings.indexName;
  FileName name = settings.indexName;
  const std::string_view extension = settings.compact ? inputParts.extension.view() : naming.indexExtension.view();
  const bool resolved = name.empty() || resolveFileName(naming, name) != 0;
  const FileName nameInPlace = name;  // in place, messages name the output without a default extension or a directory
  if (!resolved || !completeIndexParts(naming, inputParts, extension, name, parts)) {
    return failWith(messages, status::outputNameUnresolved,
                    {"Unable to resolve name for output file ", fileName(index.name)});
  }
  const bool sameName = isNamedLike(parts, inputParts);
  if (sameName && !settings.compact) return status::outputIsInput;
  inPlace = sameName;
  index.name = inPlace ? nameInPlace : name;
  if (!inPlace) {
    const StatusCode status = createIndexFile(files, messages, settings.compact);
    if (status != status::success) return status;
  }
  if (messages.debugMode) {
    putComposed(messages,
                {settings.compact ? "Compact mode using " : "Created ", fileName(index.name), " as output file\n"});
  }
  return status::success;
}

StatusCode openErrorFile(TrackedFiles& files, Messages& messages, const FileNaming& naming,
                         const FileNameParts& indexParts) {
  TrackedFile& errorFile = files[FileRole::errorFile];
  FileNameParts parts = indexParts;
  parts.extension.assignCut(".ERR");
  if (buildFileName(naming, errorFile.name, parts)) {
    const InterruptHold hold;
    errorFile.fd = createFile(errorFile.name.c_str(), {files[FileRole::input].fd, files[FileRole::index].fd});
  }
  if (!errorFile.isOpen()) {
    return failWith(messages, status::outputNotCreated, {"Can't create output file ", fileName(errorFile.name)});
  }
  if (messages.debugMode) putComposed(messages, {"Created ", fileName(errorFile.name), " as error file\n"});
  return status::success;
}

}  // namespace tarnvale
