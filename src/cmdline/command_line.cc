#include "cmdline/command_line.h"

#include <cstdlib>

#include "cmdline/character_case.h"
#include "cmdline/definition_file.h"
#include "cmdline/file_fields.h"
#include "cmdline/index_information.h"
#include "cmdline/key_specification.h"
#include "cmdline/option_section.h"
#include "cmdline/settings.h"
#include "cmdline/work_files.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

bool settingIs(std::string_view value, std::string_view word) { return compareNoCase(value, word) == 0; }

void readSearchPath(RunContext& run) {
  const auto path = lookupFirstSetting(run, {"QLX_PATH", "VELDA_DBPATH", "DBPATH"});
  if (!path) return;
  run.searchPath = static_cast<char*>(std::malloc(path->size() + 1));
  if (run.searchPath == nullptr) return;
  path->copy(run.searchPath, path->size());
  run.searchPath[path->size()] = '\0';
}

StatusCode skipToOptions(std::string_view& rest) {
  const std::size_t opener = rest.find_first_of("-;");
  if (opener == std::string_view::npos) return status::commandLineIncomplete;
  rest.remove_prefix(opener);
  return status::success;
}

void readNoPathSetting(RunContext& run) {
  const std::string_view value = lookupSetting(run, "QLX_NOPATH").value_or("");
  if (run.debugMode) putComposed(run, {"'QLX_NOPATH=", fileName(value), "'\n"});
  if (settingIs(value, "ON")) run.discardPathInHeader = true;
}

StatusCode checkBinaryOptions(RunContext& run) {
  if (!run.binaryRecords) return status::success;
  if (run.variableLengthAllowed) return status::conflictingOptions;
  if (run.recordLengthSpec == 0) return status::recordLengthRequired;
  run.foundRecordLength = run.recordLengthSpec;
  return status::success;
}

bool isBuild(const RunContext& run) {
  return run.compactOptions == 0 && !run.displayInfoRequested && !run.reindexRequested;
}

// What remains to be said and checked once all options are known. From here on no column is added.
StatusCode completeOptions(RunContext& run) {
  readNoPathSetting(run);
  if (run.primaryMode == 'P') run.primaryConditions.back().character = 0xFF;  // marks the expression form
  const StatusCode status = checkBinaryOptions(run);
  if (status != status::success) return status;
  if (run.columnEntryCount == 0 && isBuild(run)) return status::commandLineIncomplete;
  closeColumnTable(run);
  if (run.debugMode) displayColumnTable(run);
  return status::success;
}

// A command that an index cannot keep is refused before any file is made. Only a build keeps it, and only the options
// tell whether this is one: they are read ahead, and every setting is put back.
StatusCode checkStoredCommand(RunContext& run, std::string_view rest) {
  if (run.storedCommandLine.size() <= maxStoredCommandLine) return status::success;
  const CommandLineState settings = run;
  const InputState input = run;
  const bool readable = skipToOptions(rest) == status::success && parseOptionSection(run, rest) == status::success;
  const bool kept = readable && isBuild(run);
  static_cast<CommandLineState&>(run) = settings;
  static_cast<InputState&>(run) = input;
  if (!kept) return status::success;
  composeMessage(run, {"The command line is too long: an index can keep 527 characters of it."});
  return status::commandLineTooLong;
}

StatusCode readSettings(RunContext& run, std::string_view commandLine) {
  if (run.debugMode) {
    PutMessage(run, "Command line is:");
    PutMessage(run, commandLine);
    PutMessage(run, "\n");
  }
  readEnvironment(run);
  std::string_view rest = commandLine;
  StatusCode status = takeFileFields(run, rest);
  if (status == status::success) status = checkStoredCommand(run, rest);
  if (status == status::success) status = createWorkFiles(run);
  if (status == status::success) status = skipToOptions(rest);
  if (status == status::success) status = parseOptionSection(run, rest);
  if (status == status::success) status = completeOptions(run);
  return status;
}

StatusCode startCompaction(RunContext& run) {
  const StatusCode status = run.openRunFiles(run);
  if (status != status::success) return status;
  putComposed(run, {"Compacting ", fileName(run.inputName), " into ", fileName(run.outputName), "\n"});
  return status::success;
}

// The record length includes the end-of-record mark from here on. Binary records with a mark are scanned as binary
// records whose last bytes are the mark.
void completeRecordLength(RunContext& run) {
  if (run.recordLengthSpec == 0) return;
  run.recordLengthSpec += run.eorLength;
  if (run.binaryWithEor) {
    run.foundRecordLength = run.recordLengthSpec;
    run.eorLength = 0;
  }
  if (run.foundRecordLength == 0) run.foundRecordLength = run.recordLengthSpec;
}

StatusCode startBuild(RunContext& run) {
  const StatusCode status = run.openRunFiles(run);
  if (status != status::success) return status;
  completeRecordLength(run);
  if (run.binaryRecords) {
    const auto size = fileSize(run.inputFd).value_or(0);
    if (size % static_cast<std::uint64_t>(run.recordLengthSpec) != 0) return status::recordSizeMismatch;
  }
  putComposed(run, {"Indexing ", fileName(run.inputName), " into ", fileName(run.outputName), "\n"});
  return status::success;
}

StatusCode startRun(RunContext& run) { return run.compactOptions != 0 ? startCompaction(run) : startBuild(run); }

// Puts every setting of the command line back to its default; the work files of the old one are gone.
void discardCommandLine(RunContext& run) {
  {
    const InterruptHold hold;
    removeWorkFiles(run);
  }
  std::free(run.searchPath);
  static_cast<CommandLineState&>(run) = {};
  static_cast<InputState&>(run) = {};
}

}  // namespace

void readEnvironment(RunContext& run) {
  readSearchPath(run);
  const auto nameCase = lookupFirstSetting(run, {"QLX_FNC", "VELDA_FNC"});
  run.foldFileNameCase = nameCase && !settingIs(*nameCase, "Mixed");
  readDefinitionFile(run);
}

StatusCode parseStoredCommand(RunContext& run, std::string_view stored) {
  const FileName indexName = run.outputName;
  discardCommandLine(run);
  const StatusCode status = readSettings(run, stored);
  if (status != status::success) return status;
  if (!isBuild(run)) {
    run.outputName = indexName;
    return failWithoutKeyInformation(run);
  }
  return startBuild(run);
}

StatusCode parseCommandLine(RunContext& run, std::string_view commandLine) {
  StatusCode status = readSettings(run, commandLine);
  if (status != status::success) return status;
  if (run.compactOptions != 0 || isBuild(run)) return startRun(run);

  StoredCommandLine stored;
  const bool reindex = run.reindexRequested;
  status = showIndexInformation(run, stored);
  if (status != status::success) return status;
  return reindex ? parseStoredCommand(run, stored) : status::displayFinished;
}

}  // namespace tarnvale
