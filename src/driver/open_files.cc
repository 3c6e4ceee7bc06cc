#include "driver/open_files.h"

#include "cmdline/command_line.h"
#include "common/interrupt_hold.h"
#include "isi/index_file.h"
#include "isi/index_information.h"
#include "sort/work_files.h"

namespace tarnvale {

namespace {

constexpr std::size_t detectionBufferSize = 65536;  // of the scan's buffer, before the scan needs it

StatusCode openForCompaction(RunContext& run, const FileNaming& naming) {
  FileNameParts inputParts;
  FileNameParts indexParts;
  StatusCode status = openIndexToCompact(run.files, run.messages, run.settings, naming, inputParts);
  if (status == status::success) {
    status =
        openIndexFile(run.files, run.messages, run.settings, naming, inputParts, indexParts, run.compaction.inPlace);
  }
  return status;
}

StatusCode loadFirstBlock(RunContext& run, std::uint8_t* scanBuffer) {
  const TrackedFile& input = run.files[FileRole::input];
  if (startScan(run.scanner, run.settings, run.data.format, input.fd, scanBuffer, run.messages)) {
    return status::success;
  }
  composeMessage(run.messages, {"Invalid number of bytes read from input file: ", fileName(input.name)});
  return status::dataFileReadFailed;
}

StatusCode openForBuild(RunContext& run, const FileNaming& naming, std::uint8_t* scanBuffer) {
  const IfMissing ifMissing = run.settings.quitIfNoData ? IfMissing::fail : IfMissing::create;
  FileNameParts indexParts;
  bool inPlace = false;
  StatusCode status = openDataFile(run.data, run.files, run.messages, run.settings, naming, run.settings.dataName,
                                   ifMissing, {scanBuffer, detectionBufferSize});
  if (status == status::success) {
    status = openIndexFile(run.files, run.messages, run.settings, naming, run.data.nameParts, indexParts, inPlace);
  }
  if (status == status::success && run.settings.errorFileWanted) {
    status = openErrorFile(run.files, run.messages, naming, indexParts);
  }
  if (status == status::success) status = loadFirstBlock(run, scanBuffer);
  if (status != status::success) return status;
  const bool whole = hasWholeRecords(run.data, run.files[FileRole::input], run.settings);
  return whole ? status::success : status::recordSizeMismatch;
}

void removeWorkFiles(TrackedFiles& files) {
  const InterruptHold hold;
  releaseFile(files[FileRole::workFile1], RunEnd::success);
  releaseFile(files[FileRole::workFile2], RunEnd::success);
}

}  // namespace

StatusCode readCommand(RunContext& run, std::string_view commandLine, const Environment& environment) {
  const auto makeWorkFiles = [&](const Settings& settings) {
    const std::string_view standard = lookupSetting(environment, "TMPDIR").value_or("/tmp");
    const bool made = createWorkFiles(run.files, run.messages, settings.tempPath, standard);
    return made ? status::success : status::workFileNotCreated;
  };
  const ParsedCommand command = parseCommandLine(commandLine, environment, run.messages, makeWorkFiles);
  run.settings = command.settings;
  return command.status;
}

StatusCode readStoredCommand(RunContext& run, const Environment& environment, const FileNaming& naming) {
  StoredCommand stored;
  StatusCode status = showIndexInformation(naming, run.messages, run.settings.dataName, stored);
  if (status != status::success) return status;
  if (!run.settings.reindex) return status::displayFinished;
  removeWorkFiles(run.files);
  status = readCommand(run, stored.command, environment);
  if (status != status::success) return status;
  return run.settings.isBuild() ? status::success : failWithoutKeyInformation(run.messages, stored.indexName);
}

StatusCode openRunFiles(RunContext& run, const FileNaming& naming, std::uint8_t* scanBuffer) {
  const bool compact = run.settings.compact;
  const StatusCode status = compact ? openForCompaction(run, naming) : openForBuild(run, naming, scanBuffer);
  if (status != status::success) return status;
  const TrackedFiles& files = run.files;
  putComposed(run.messages, {compact ? "Compacting " : "Indexing ", fileName(files[FileRole::input].name), " into ",
                             fileName(files[FileRole::index].name), "\n"});
  return status::success;
}

}  // namespace tarnvale
