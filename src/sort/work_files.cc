#include "sort/work_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "common/interrupt_hold.h"
#include "common/limits.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::string_view nameTemplate = "/dsortXXXXXX";
constexpr std::size_t maxWorkFileName = 269;  // characters

bool createWorkFile(TrackedFile& file, std::string_view directory, const char* number, Messages& messages) {
  FixedText<maxWorkFileName + 1> tried;
  if (!tried.join(directory, nameTemplate)) return false;
  {
    const InterruptHold hold;
    file.fd = ::mkstemp(tried.data());
    file.atEnd = messages.debugMode ? AtEnd::keep : AtEnd::removeAlways;
    file.name.assignCut(tried);
  }
  if (!file.isOpen()) return false;
  if (messages.debugMode) {
    putComposed(messages, {"Created ", fileName(file.name), " as temp file ", number, "\n"});
  }
  return true;
}

bool reachesEnd(int fd, std::uint64_t offset, ssize_t bytesRead) {
  const auto size = fileSize(fd);
  return size && bytesRead >= 0 && static_cast<std::uint32_t>(*size - offset) == static_cast<std::uint32_t>(bytesRead);
}

// The number in the diagnostics of a short read: an odd one when the read is given up, the next one when it is
// repeated.
int diagnosticNumber(TrainBlock which, bool repeated) {
  return (which == TrainBlock::first ? 1 : 3) + (repeated ? 1 : 0);
}

void reportGivingUp(Messages& messages, TrainBlock which, std::size_t size, ssize_t bytesRead) {
  if (!messages.debugMode) return;
  putFormatted(messages, "\nDoFancyMerge(%d): Invalid blkLgt size read! %d:%d\n", diagnosticNumber(which, false),
               static_cast<int>(size), static_cast<int>(bytesRead));
}

void reportRetry(Messages& messages, TrainBlock which, int retries, std::uint64_t offset, std::size_t size,
                 ssize_t bytesRead) {
  if (!messages.debugMode) return;
  putFormatted(messages, "\nDoFancyMerge(%d):\n Retry:%d  At location:0x%.8lX  Bytes read was:%d Should be:%d\n",
               diagnosticNumber(which, true), retries, static_cast<unsigned long>(static_cast<std::uint32_t>(offset)),
               static_cast<int>(bytesRead), static_cast<int>(size));
}

}  // namespace

bool createWorkFiles(TrackedFiles& files, Messages& messages, std::string_view directory,
                     std::string_view standardDirectory) {
  if (messages.debugMode) putComposed(messages, {"Temporary file path is:", fileName(directory), "\n"});
  std::string_view second = directory;
  if (directory.empty()) {
    constexpr std::size_t maxDirectory = 255;
    if (standardDirectory.size() > maxDirectory) return false;
    directory = standardDirectory;
    second = standardDirectory;
    if (second.ends_with('/')) second.remove_suffix(1);
  }
  return createWorkFile(files[FileRole::workFile1], directory, "1", messages) &&
         createWorkFile(files[FileRole::workFile2], second, "2", messages);
}

void recycleWorkFile(TrackedFile& file, bool createAgain) {
  const InterruptHold hold;
  closeFile(file.fd);
  ::unlink(file.name.c_str());
  if (!createAgain) return;
  file.fd = ::open(file.name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
}

bool readTrainBlock(int fd, std::uint8_t* block, std::size_t size, std::uint64_t offset, std::size_t before,
                    TrainBlock which, Messages& messages) {
  for (int retries = maxShortReads;;) {
    const ssize_t bytesRead = readAt(fd, block - before, before + size, offset - before) - static_cast<ssize_t>(before);
    if (bytesRead == static_cast<ssize_t>(size)) return true;
    if (--retries < 0) {
      reportGivingUp(messages, which, size, bytesRead);
      return false;
    }
    if (reachesEnd(fd, offset, bytesRead)) return true;
    reportRetry(messages, which, retries, offset, size, bytesRead);
  }
}

}  // namespace tarnvale
