// The table of contents of the program: the phases of a run, and every decision between them.
#include "driver/run_utility.h"

#include <unistd.h>

#include "cmdline/command_line.h"
#include "cmdline/file_names.h"
#include "common/interrupt.h"
#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "driver/failure_messages.h"
#include "driver/message_stream.h"
#include "driver/open_files.h"
#include "driver/run_clock.h"
#include "driver/usage.h"
#include "isi/backup.h"
#include "isi/index_build.h"

namespace tarnvale {

namespace {

// The buffers of a run. An interrupt ends the process without freeing them.
struct RunMemory {
  PageBuffer scan;
  SortMemory sort;
};

StatusCode failWithoutMemory(Messages& messages, const char* text) {
  putMessage(messages, text);
  return status::outOfMemory;
}

StatusCode allocateBuffers(RunMemory& memory, Messages& messages) {
  memory.scan = allocatePages(scanBufferSize);
  if (memory.scan != nullptr && memory.sort.allocateBuffers()) return status::success;
  return failWithoutMemory(messages, "Insufficient Memory for Buffers.\n");
}

using CommandText = FixedText<maxCommandLine + 1>;

// Joins the remaining arguments by single blanks. Arguments are not quoted.
StatusCode joinCommandLine(CommandText& command, Messages& messages, Arguments arguments) {
  bool fits = true;
  for (const char* const argument : arguments) {
    if (argument != arguments.front()) fits = fits && command.append(" ");
    fits = fits && command.append(argument);
  }
  if (fits) return status::success;
  putMessage(messages, "The command line is too long: it can have 576 characters.\n");
  return status::commandLineTooLong;
}

void reportIniFile(const LeadingOptions& options, Messages& messages) {
  if (!messages.debugMode) return;
  if (options.iniFileName.empty()) {
    putMessage(messages, "INI file NOT USED!\n");
  } else {
    putComposed(messages, {"Using INI file: ", fileName(options.iniFileName), "\n"});
  }
}

// --- clean-up -------------------------------------------------------------------------------------------------------

void closeMessages(RunContext& run) {
  flushMessages(run.messages);
  run.files.messageFd = -1;  // first: the interrupt handler writes to no closed stream
  closeLog(run.messages);
}

// Closes every file of the run that is open, and removes what must not stay. After a failure the log is closed first.
void cleanUpFiles(RunContext& run, RunEnd end) {
  if (end == RunEnd::failure) {
    closeErrorFile(run.builder.duplicates, run.files[FileRole::errorFile], run.messages);
    closeMessages(run);
  }
  const InterruptHold hold;
  releaseAllFiles(run.files, end);
}

// Closes the error file; deletes it when no duplicate key was met.
void finishErrorFile(RunContext& run) {
  if (!run.settings.errorFileWanted) return;
  TrackedFile& file = run.files[FileRole::errorFile];
  closeErrorFile(run.builder.duplicates, file, run.messages);
  if (!run.builder.duplicates.any()) ::unlink(file.name.c_str());
}

// The index is closed: nobody may go on with it under any of its names.
void deleteIndexByName(const TrackedFile& index) {
  static_cast<void>(::truncate(index.name.c_str(), 0));
  ::unlink(index.name.c_str());
}

// --- the phases -----------------------------------------------------------------------------------------------------

StatusCode parsePhase(RunContext& run, std::string_view commandLine, const Environment& environment,
                      const RunMemory& memory) {
  const FileNaming naming = readFileNaming(environment);
  StatusCode status = readCommand(run, commandLine, environment);
  if (status == status::success && !run.settings.isBuild() && !run.settings.compact) {
    status = readStoredCommand(run, environment, naming);
  }
  if (status == status::success) status = openRunFiles(run, naming, memory.scan.get());
  if (status == status::success) return status;
  if (status == status::usageRequested) showUsage(run.messages);
  const bool finished = status == status::displayFinished || status == status::usageRequested;
  if (!finished) putParseFailure(status, run.messages);
  cleanUpFiles(run, finished ? RunEnd::success : RunEnd::failure);
  return status;
}

StatusCode obtainSortMemory(RunContext& run, RunMemory& memory) {
  const SortLimits& limits = run.options.sort;
  if (!memory.sort.allocateTrainTable(limits.maxTrains)) {
    return failWithoutMemory(run.messages, "Sort train memory allocation failed.\n");
  }
  if (!probeMemory(run.sorter.area, limits.maxMemory)) {
    return failWithoutMemory(run.messages, "Memory allocation failed.\n");
  }
  if (run.settings.compact) return status::success;  // the key length is still to be read from the index
  const bool ready = startSorter(run.sorter, memory.sort, limits, run.settings.keys.keyLength, run.messages);
  return ready ? status::success : status::outOfMemory;
}

// The memory of the sort. A failure here leaves nothing behind, like one of the command line.
StatusCode memoryPhase(RunContext& run, RunMemory& memory) {
  const StatusCode status = obtainSortMemory(run, memory);
  if (status != status::success) cleanUpFiles(run, RunEnd::failure);
  return status;
}

StatusCode buildPhase(RunContext& run) {
  const Failure failure = buildIndex(run.settings, run.scanner, run.sorter, run.builder, run.files, run.messages);
  if (failure.none()) return status::success;
  discardFile(run.files[FileRole::index]);
  putBuildFailure(failure, run.files, run.messages);
  return failure.code;
}

void undoFailedCompaction(RunContext& run) {
  const TrackedFile& input = run.files[FileRole::input];
  if (!run.compaction.inPlace) discardFile(run.files[FileRole::index]);
  if (!run.compaction.backupMade) return;
  if (restoreBackup(run.files, run.messages)) {
    putComposed(run.messages,
                {"ISI has been restored after fatal compact error for file: ", fileName(input.name), "\n"});
    return;
  }
  static_cast<void>(::ftruncate(input.fd, 0));  // half an index is worse than none: readers reject an empty file
  putComposed(run.messages,
              {"ISI can not be restored after fatal compact error for file: ", fileName(input.name), "\n"});
}

StatusCode compactPhase(RunContext& run, const RunMemory& memory) {
  const Failure failure = compactIndex(run.settings, run.compaction, run.sorter, memory.sort, run.options.sort,
                                       run.builder, run.files, run.messages);
  if (!failure.none()) {
    undoFailedCompaction(run);
    putCompactFailure(failure, run.files, run.messages);
  }
  removeBackup(run.files);
  if (run.settings.compactLocking) releaseCompactLock(run.compaction.lock);
  closeDataFileLock(run.compaction.lock);
  return failure.code;
}

// --- the end of a run -----------------------------------------------------------------------------------------------

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

using LastMessage = FixedText<240>;

// What is still to be said of the run.
LastMessage lastMessageOf(const Ending& ending, StatusCode result, const ClockText& startTime) {
  LastMessage message;
  const std::string_view text =
      ending.inDeclaredFormat ? "" : "Data file is not in the correct format.  Index file will be deleted.\n";
  static_cast<void>(message.join(ending.outputClosed ? "" : "Close(outfile) failed.\n",
                                 ending.inputClosed ? "" : "Close(infile) failed.\n", text));
  if (result == status::success) static_cast<void>(message.append(timingLine(startTime)));
  return message;
}

// Closes every file of the run, deletes what must not stay, and settles the result. An interrupt has to wait: between
// the closing of an index that does not hold and its deletion nobody may see it. Then it can only write the last
// message itself.
StatusCode closeRun(RunContext& run, StatusCode result, const ClockText& startTime, LastMessage& lastMessage) {
  const InterruptHold hold;
  Ending ending;
  const bool inPlace = run.compaction.inPlace;
  ending.outputClosed = closeTracked(run.files[inPlace ? FileRole::input : FileRole::index]);
  ending.inputClosed = closeTracked(run.files[FileRole::input]);
  finishErrorFile(run);
  releaseAllFiles(run.files, RunEnd::success);
  ending.inDeclaredFormat =
      run.settings.compact || isInDeclaredFormat(run.settings, run.builder.tree.findings, run.builder.duplicates);
  // A close that fails may be a write that failed: what lies there is not to be trusted.
  const bool spoilt = !ending.outputClosed && !inPlace;
  if (spoilt || !ending.inDeclaredFormat) deleteIndexByName(run.files[FileRole::index]);
  result = resultOf(ending, result);
  lastMessage = lastMessageOf(ending, result, startTime);
  settleExitStatus(result == status::success ? 0 : 1, lastMessage);
  return result;
}

// Written by an interrupt or here, never twice; but a reader that does not take it must not hold the interrupt up.
void putLastMessage(RunContext& run, const LastMessage& lastMessage) {
  {
    const InterruptHold hold;
    if (acceptsOutput(run.files.messageFd, 0)) {
      takeBackLastMessage();
      putMessage(run.messages, lastMessage);
      return;
    }
  }
  putMessage(run.messages, lastMessage);
}

// The end of every build or compaction, successful or not.
StatusCode finishRun(RunContext& run, StatusCode result, const ClockText& startTime) {
  static LastMessage lastMessage;  // static: an interrupt may write it until the process ends
  result = closeRun(run, result, startTime, lastMessage);
  putLastMessage(run, lastMessage);
  return result;
}

StatusCode carryOut(RunContext& run, Arguments arguments) {
  const ClockText startTime = currentClock();
  RunMemory memory;
  CommandText commandLine;
  StatusCode status = allocateBuffers(memory, run.messages);
  if (status == status::success) status = takeLeadingOptions(run.options, run.messages, arguments);
  if (status == status::success) status = joinCommandLine(commandLine, run.messages, arguments);
  if (status != status::success) return status;
  reportIniFile(run.options, run.messages);
  const Environment environment(run.options.iniFileName.c_str());
  status = parsePhase(run, commandLine, environment, memory);
  if (status == status::displayFinished) return status::success;
  if (status == status::usageRequested) return status::usageShown;
  if (status == status::success) status = memoryPhase(run, memory);
  if (status != status::success) return status;
  status = run.settings.compact ? compactPhase(run, memory) : buildPhase(run);
  return finishRun(run, status, startTime);
}

// Not at a terminal: there each line is written at once.
void collectMessages(RunContext& run) {
  if (run.messages.progressEnabled) return;
  run.messages.collected = &run.files.messages;
  if (isRegularFile(run.files.messageFd)) run.messages.collectedLimit = run.messages.collectedBytes.size();
}

}  // namespace

StatusCode runUtility(RunContext& run, int argc, char* const* argv, std::FILE* output) {
  const Arguments arguments(argv, static_cast<std::size_t>(argc));
  if (answerQuestion(arguments, output)) return status::success;
  Arguments remaining = arguments.subspan(arguments.empty() ? 0 : 1);
  openMessages(run.messages, output, remaining);
  run.files.messageFd = ::fileno(run.messages.stream);
  startMessages(run.messages, arguments);
  collectMessages(run);
  StatusCode result = status::usageRequested;
  if (argc < 2) {
    showUsage(run.messages);
  } else {
    result = carryOut(run, remaining);
  }
  closeMessages(run);
  return result;
}

}  // namespace tarnvale
