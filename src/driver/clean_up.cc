#include "driver/clean_up.h"

#include <unistd.h>

#include <cstdlib>

#include "cmdline/work_files.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"
#include "isi/error_file.h"

namespace tarnvale {

namespace {

// Deletes an open file. It is emptied first: the name may be one of several, or a link.
void discardFile(int& fd, const char* name) {
  static_cast<void>(::ftruncate(fd, 0));
  closeFile(fd);
  ::unlink(name);
}

template <typename Block>
void freeBlock(Block*& block) {
  std::free(block);
  block = nullptr;
}

}  // namespace

void closeAndRemoveFiles(RunContext& run, CleanUp mode) {
  const bool failure = mode == CleanUp::failure;
  if (run.inputFd >= 0) {
    if (run.compactOptions != 0 && run.outputFd == run.inputFd) run.outputFd = -1;  // the index itself: never deleted
    closeFile(run.inputFd);
    if (failure && run.dataFileCreated) ::unlink(run.inputName.c_str());
  }
  if (run.outputFd >= 0 && failure) discardFile(run.outputFd, run.outputName.c_str());
  closeFile(run.outputFd);
  removeWorkFiles(run);
}

void CleanUpFiles(RunContext& run, CleanUp mode) {
  if (mode == CleanUp::failure) {
    closeErrorFile(run);
    CloseLog(run);
  }
  const InterruptHold hold;
  closeAndRemoveFiles(run, mode);
}

void removeIndexFile(RunContext& run) {
  if (run.outputFd < 0) return;
  const InterruptHold hold;
  discardFile(run.outputFd, run.outputName.c_str());
}

void deleteIndexByName(RunContext& run) {
  static_cast<void>(::truncate(run.outputName.c_str(), 0));
  ::unlink(run.outputName.c_str());
}

void finishErrorFile(RunContext& run) {
  if (!run.errorFileWanted) return;
  closeErrorFile(run);
  if (run.duplicateKeyCount == 0 && run.droppedDuplicateCount == 0) ::unlink(run.errorFileName.c_str());
}

void FreeBuffers(RunContext& run) {
  freeBlock(run.searchPath);
  freeBlock(run.trainTable);
  freeBlock(run.levelBuffers);
  freeBlock(run.workIoBuffer);
  freeBlock(run.inputBuffer);
}

}  // namespace tarnvale
