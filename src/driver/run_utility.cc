// The table of contents of the program: the phases of a run, and every decision between them.
#include "driver/run_utility.h"

#include <unistd.h>

#include "cmdline/command_line.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"
#include "driver/clean_up.h"
#include "driver/failure_messages.h"
#include "driver/interrupt.h"
#include "driver/leading_options.h"
#include "driver/message_stream.h"
#include "driver/run_clock.h"
#include "driver/sort_memory.h"
#include "driver/usage.h"
#include "isi/backup.h"
#include "isi/compact.h"
#include "isi/data_file_lock.h"
#include "isi/deleted_list.h"
#include "isi/error_file.h"
#include "isi/index_build.h"
#include "isi/tree_builder.h"
#include "sort/open_files.h"
#include "sort/sort_phase.h"

namespace tarnvale {

namespace {

void startRun(RunContext& run, std::FILE* output) {
  run = RunContext{};
  run.outputStream = output;
  run.outputStreamFd = ::fileno(output);
  run.openRunFiles = OpenRunFiles;
  run.mergeOutputCallback = WriteTagRecord;
  run.deletedRecordCallback = appendDeletedRecord;
}

// Joins the remaining arguments by single blanks. Arguments are not quoted.
StatusCode joinCommandLine(RunContext& run, Arguments arguments) {
  bool fits = true;
  for (const char* const argument : arguments) {
    if (argument != arguments.front()) fits = fits && run.commandLineBuffer.append(" ");
    fits = fits && run.commandLineBuffer.append(argument);
  }
  if (fits) return status::success;
  PutMessage(run, "The command line is too long: it can have 576 characters.\n");
  return status::commandLineTooLong;
}

void reportIniFile(RunContext& run) {
  if (!run.debugMode) return;
  if (run.iniFileName.empty()) {
    PutMessage(run, "INI file NOT USED!\n");
  } else {
    putComposed(run, {"Using INI file: ", fileName(run.iniFileName), "\n"});
  }
}

StatusCode parse(RunContext& run) {
  const StatusCode status = parseCommandLine(run, run.commandLineBuffer);
  if (status == status::success) return status;
  if (status == status::usageRequested) ShowUsage(run);
  const bool finished = status == status::displayFinished || status == status::usageRequested;
  if (!finished) putParseFailure(run, status);
  CleanUpFiles(run, finished ? CleanUp::normal : CleanUp::failure);
  return status;
}

// The memory of the sort. A failure here leaves nothing behind, like one of the command line.
StatusCode prepareSortMemory(RunContext& run) {
  StatusCode status = allocateTrainTable(run);
  if (status == status::success) status = obtainSortArea(run);
  if (status == status::success && run.compactOptions == 0) status = divideSortArea(run, run.keyLength);
  if (status != status::success) CleanUpFiles(run, CleanUp::failure);
  return status;
}

StatusCode buildPhase(RunContext& run) {
  const StatusCode status = buildIndex(run);
  if (status == status::success) return status;
  removeIndexFile(run);
  putBuildFailure(run, status);
  return status;
}

void undoFailedCompaction(RunContext& run) {
  if (run.outputFd < 0) return;
  if (!run.inPlace) {
    removeIndexFile(run);
    return;
  }
  if ((run.compactOptions & compact_option::backupMade) == 0) return;
  if (restoreBackup(run) == status::success) {
    putComposed(run, {"ISI has been restored after fatal compact error for file: ", fileName(run.inputName), "\n"});
    return;
  }
  static_cast<void>(::ftruncate(run.outputFd, 0));  // half an index is worse than none: readers refuse an empty file
  putComposed(run, {"ISI can not be restored after fatal compact error for file: ", fileName(run.inputName), "\n"});
}

void releaseLocks(RunContext& run) {
  if (run.compactLocking && run.compactLockFd >= 0 && run.dataFileLock != nullptr) {
    static_cast<void>(ReleaseCompactLock(*run.dataFileLock));
  }
  closeFile(run.compactLockFd);
  delete run.dataFileLock;
  run.dataFileLock = nullptr;
}

StatusCode compactPhase(RunContext& run) {
  const StatusCode status = compactIndex(run);
  if (status != status::success) {
    undoFailedCompaction(run);
    putCompactFailure(run, status);
  }
  if (run.inPlace) removeBackup(run);
  releaseLocks(run);
  return status;
}

// What became of the files at the end of a run.
struct Ending {
  bool outputClosed = true;
  bool inputClosed = true;
  bool inDeclaredFormat = true;
};

StatusCode resultOf(const Ending& ending, StatusCode result) {
  if (!ending.inDeclaredFormat) return status::wrongDataFormat;
  return ending.outputClosed && ending.inputClosed ? result : status::closeFailed;
}

// Closes every file of the run, deletes what must not stay, and settles the result. An interrupt has to wait: between
// the closing of an index that does not hold and its deletion nobody may see it. Then it can only cut the last messages
// short.
Ending closeRun(RunContext& run, StatusCode& result) {
  const InterruptHold hold;
  Ending ending;
  if (run.outputFd == run.inputFd) run.inputFd = -1;
  ending.outputClosed = closeFile(run.outputFd);
  ending.inputClosed = closeFile(run.inputFd);
  CleanUpFiles(run, CleanUp::normal);
  finishErrorFile(run);
  ending.inDeclaredFormat = run.compactOptions != 0 || isInDeclaredFormat(run);
  if (!ending.inDeclaredFormat) deleteIndexByName(run);
  result = resultOf(ending, result);
  settleExitStatus(result == status::success ? 0 : 1);
  return ending;
}

// The end of every build or compaction, successful or not.
StatusCode finishRun(RunContext& run, StatusCode result, const ClockText& startTime) {
  const Ending ending = closeRun(run, result);
  if (!ending.outputClosed) PutMessage(run, "Close(outfile) failed.\n");
  if (!ending.inputClosed) PutMessage(run, "Close(infile) failed.\n");
  if (!ending.inDeclaredFormat) {
    PutMessage(run, "Data file is not in the correct format.  Index file will be deleted.\n");
  }
  if (result == status::success) putTimingLine(run, startTime);
  return result;
}

StatusCode carryOut(RunContext& run, Arguments arguments) {
  const ClockText startTime = currentClock();
  StatusCode status = allocateBuffers(run);
  if (status == status::success) status = takeLeadingOptions(run, arguments);
  if (status == status::success) status = joinCommandLine(run, arguments);
  if (status != status::success) return status;
  reportIniFile(run);
  status = parse(run);
  if (status == status::displayFinished) return status::success;
  if (status == status::usageRequested) return status::usageShown;
  if (status == status::success) status = prepareSortMemory(run);
  if (status != status::success) return status;
  status = run.compactOptions != 0 ? compactPhase(run) : buildPhase(run);
  return finishRun(run, status, startTime);
}

}  // namespace

StatusCode RunUtility(int argc, char* const* argv, std::FILE* output) {
  RunContext& run = theRun();
  startRun(run, output);
  Arguments arguments(argv, static_cast<std::size_t>(argc));
  Arguments remaining = arguments.subspan(arguments.empty() ? 0 : 1);
  openLog(run, remaining);
  startMessages(run, arguments);
  StatusCode result = status::usageRequested;
  if (argc < 2) {
    ShowUsage(run);
  } else {
    result = carryOut(run, remaining);
  }
  CloseLog(run);
  FreeBuffers(run);
  return result;
}

}  // namespace tarnvale
