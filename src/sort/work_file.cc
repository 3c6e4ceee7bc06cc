#include "sort/work_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr mode_t everyoneReadsAndWrites = 0666;
constexpr int maxShortReads = 3;  // the fourth one fails

bool reachesEnd(int fd, std::uint64_t offset, ssize_t bytesRead) {
  const auto size = fileSize(fd);
  return size && bytesRead >= 0 && static_cast<std::uint32_t>(*size - offset) == static_cast<std::uint32_t>(bytesRead);
}

// The number in the diagnostics of a short read: an odd one when the read is given up, the next one when it is
// repeated.
int diagnosticNumber(TrainBlock which, bool repeated) {
  return (which == TrainBlock::first ? 1 : 3) + (repeated ? 1 : 0);
}

void reportGivingUp(RunContext& run, TrainBlock which, std::size_t size, ssize_t bytesRead) {
  if (!run.debugMode) return;
  putFormatted(run, "\nDoFancyMerge(%d): Invalid blkLgt size read! %d:%d\n", diagnosticNumber(which, false),
               static_cast<int>(size), static_cast<int>(bytesRead));
}

void reportRetry(RunContext& run, TrainBlock which, int retries, std::uint64_t offset, std::size_t size,
                 ssize_t bytesRead) {
  if (!run.debugMode) return;
  putFormatted(run, "\nDoFancyMerge(%d):\n Retry:%d  At location:0x%.8lX  Bytes read was:%d Should be:%d\n",
               diagnosticNumber(which, true), retries, static_cast<unsigned long>(static_cast<std::uint32_t>(offset)),
               static_cast<int>(bytesRead), static_cast<int>(size));
}

void recycle(int& fd, const char* name, bool createAgain) {
  const InterruptHold hold;
  closeFile(fd);
  ::unlink(name);
  if (createAgain) fd = ::open(name, O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
}

}  // namespace

StatusCode WorkFileFlush(RunContext& run, int fd) {
  const std::size_t size = workIoBufferSize - workBufferFree(run);
  run.workIoPosition = run.workIoBuffer;
  return writeAll(fd, run.workIoBuffer, size) ? status::success : status::writeFailed;
}

StatusCode writeThroughFullBuffer(RunContext& run, int fd, const void* bytes, std::size_t size) {
  const auto* source = static_cast<const std::uint8_t*>(bytes);
  while (size >= workBufferFree(run)) {
    const std::size_t part = workBufferFree(run);
    std::memcpy(run.workIoPosition, source, part);
    run.workIoPosition += part;
    source += part;
    size -= part;
    if (WorkFileFlush(run, fd) != status::success) return status::writeFailed;
  }
  std::memcpy(run.workIoPosition, source, size);
  run.workIoPosition += size;
  return status::success;
}

StatusCode writeTrainEnd(RunContext& run, int fd) {
  std::uint8_t marker[maxSortEntrySize];
  writeEndMarker(marker, run.sortEntrySize);
  return WorkFileWrite(run, fd, marker, run.sortEntrySize);
}

StatusCode readTrainBlock(RunContext& run, std::uint8_t* block, std::size_t size, std::uint64_t offset,
                          std::size_t before, TrainBlock which) {
  for (int retries = maxShortReads;;) {
    const ssize_t bytesRead =
        readAt(run.mergeInputFd, block - before, before + size, offset - before) - static_cast<ssize_t>(before);
    if (bytesRead == static_cast<ssize_t>(size)) return status::success;
    if (--retries < 0) {
      reportGivingUp(run, which, size, bytesRead);
      return status::workFileReadFailed;
    }
    if (reachesEnd(run.mergeInputFd, offset, bytesRead)) return status::success;
    reportRetry(run, which, retries, offset, size, bytesRead);
  }
}

void recycleInputFile(RunContext& run, bool createAgain) {
  const bool inputIsFile2 = run.mergeOutputFd == run.tempFd1;
  int& fd = inputIsFile2 ? run.tempFd2 : run.tempFd1;
  recycle(fd, inputIsFile2 ? run.tempName2.c_str() : run.tempName1.c_str(), createAgain);
  run.mergeInputFd = fd;
}

}  // namespace tarnvale
