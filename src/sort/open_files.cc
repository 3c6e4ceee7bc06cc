#include "sort/open_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "cmdline/file_names.h"
#include "cmdline/index_information.h"
#include "common/interrupt_hold.h"
#include "common/output.h"
#include "common/posix_file.h"
#include "sort/end_of_record.h"
#include "sort/input_buffer.h"

namespace tarnvale {

namespace {

constexpr mode_t everyoneReadsAndWrites = 0666;
constexpr std::size_t maxStoredName = 255;  // characters that the index header keeps of the data file's name
constexpr std::int32_t maxRecordSize = 65535;
constexpr std::size_t detectionBufferSize = 65536;

StatusCode fail(RunContext& run, StatusCode code, std::initializer_list<MessagePiece> message) {
  composeMessage(run, message);
  return code;
}

StatusCode failWithOutput(RunContext& run) {
  composeMessage(run, {"Can't create output file ", fileName(run.outputName)});
  run.outputName.clear();
  return status::outputNotCreated;
}

// --- the data file, or the index to compact -------------------------------------------------------------------------

StatusCode nameDataFile(RunContext& run) {
  const auto unresolved = [&] {
    return fail(run, status::dataNameUnresolved, {"Unable to resolve name for source file ", fileName(run.inputName)});
  };
  if (resolveFileName(run, run.inputName, nameCapacity, run.extensionSeparator) == 0) return unresolved();
  FileNameParts& parts = run.dataFileParts;
  if (!splitFileName(run.inputName, parts)) return unresolved();
  if (parts.extension.empty()) {
    const std::string_view standard = run.compactOptions != 0 ? ".ISI" : run.defaultDataExtension.view();
    if (!parts.extension.assign(standard)) return unresolved();
  }
  // A name that ends with a dot has no extension.
  if (parts.extension.view().ends_with('.')) parts.extension.truncate(parts.extension.size() - 1);
  return findAndBuildFileName(run, run.inputName, parts) ? status::success : unresolved();
}

StatusCode checkStoredName(RunContext& run) {
  const FileNameParts& parts = run.dataFileParts;
  const std::size_t bare = parts.baseName.size() + parts.extension.size();
  if (run.discardPathInHeader) {
    if (bare <= maxStoredName) return status::success;
    return fail(run, status::bareNameTooLong, {"Filename+Extension size limited to 255 characters with 'z' option!"});
  }
  const std::size_t drive = run.noDriveInHeader ? 0 : parts.drive.size();
  if (bare + parts.directory.size() + drive <= maxStoredName) return status::success;
  return fail(run, status::fullNameTooLong,
              {"Full Path+Filename+Extension size limited to 255 characters without 'z' option!"});
}

// Opens `inputName`; only a regular file will do. O_NONBLOCK keeps a pipe of that name from stopping the run.
bool openInput(RunContext& run, int access) {
  const InterruptHold hold;
  run.inputFd = ::open(run.inputName.c_str(), access | O_NONBLOCK | O_CLOEXEC);
  if (run.inputFd < 0) return false;
  if (isRegularFile(run.inputFd)) return true;
  closeFile(run.inputFd);
  return false;
}

bool createDataFile(RunContext& run) {
  const InterruptHold hold;
  run.inputFd = ::open(run.inputName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
  run.dataFileCreated = run.inputFd >= 0;
  return run.dataFileCreated;
}

void reportOpened(RunContext& run) {
  if (run.debugMode) putComposed(run, {"Opened ", fileName(run.inputName), " as input file\n"});
}

StatusCode openDataFile(RunContext& run) {
  if (openInput(run, O_RDONLY)) return status::success;
  if (!run.quitIfNoData && createDataFile(run)) return status::success;
  return fail(run, status::dataFileNotOpened, {"Can't open source file ", fileName(run.inputName)});
}

StatusCode openIndexToCompact(RunContext& run) {
  if (openInput(run, O_RDWR)) {
    reportOpened(run);
    return status::success;
  }
  return fail(run, status::dataFileNotOpened,
              {"Unable to open input ISI file for compact: ", fileName(run.inputName), "\n"});
}

bool isTooLargeForOffsets(const RunContext& run) {
  constexpr std::uint64_t offsetLimit = std::uint64_t{1} << 32;
  return !run.recordNumberAddressing && fileSize(run.inputFd).value_or(0) >= offsetLimit;
}

StatusCode checkRecordLength(RunContext& run) {
  const bool fixedText = !run.variableLengthAllowed;
  if (fixedText && run.foundRecordLength == 0 && run.recordLengthSpec == 0) {
    return fail(run, status::recordLengthNotFound,
                {"Unable to determine record length for fixed record length file: ", fileName(run.inputName)});
  }
  if (run.foundRecordLength > maxRecordSize - run.eorLength) {
    return fail(run, status::recordTooLong, {"A record longer than 65533 bytes was found."});
  }
  return status::success;
}

StatusCode examineDataFile(RunContext& run) {
  if (isTooLargeForOffsets(run)) return status::dataFileTooLarge;
  EorConvention convention = EorConvention::notDefined;
  if (!run.binaryRecords || run.binaryWithEor) {
    convention = DetectEndOfRecord(run, run.inputFd, {run.inputBuffer, detectionBufferSize});
    if (convention == EorConvention::sizeUnknown) {
      return fail(run, status::dataFileSizeUnknown,
                  {"Unable to determine file size for input file: ", fileName(run.inputName)});
    }
  }
  const StatusCode status = checkRecordLength(run);
  if (status != status::success) return status;
  if (run.binaryWithEor) run.binaryEorLength = run.eorLength;
  reportOpened(run);
  if (run.debugMode) {
    PutMessage(run, "Expected End of Record for data file is ");
    PutMessage(run, eorConventionText(convention));
  }
  return status::success;
}

StatusCode openInputFile(RunContext& run) {
  StatusCode status = nameDataFile(run);
  if (status != status::success) return status;
  if (run.compactOptions != 0) return openIndexToCompact(run);
  status = checkStoredName(run);
  if (status == status::success) status = openDataFile(run);
  if (status == status::success) status = examineDataFile(run);
  return status;
}

// --- the index file
// ---------------------------------------------------------------------------------------------------

StatusCode unresolvedOutput(RunContext& run) {
  return fail(run, status::outputNameUnresolved, {"Unable to resolve name for output file ", fileName(run.outputName)});
}

// The parts of the output's name: what was not given is taken from the data file. `name` is the resolved name.
bool completeOutputParts(RunContext& run, FileName& name) {
  FileNameParts& parts = run.indexFileParts;
  const FileNameParts& data = run.dataFileParts;
  if (!splitFileName(name, parts)) return false;
  if (parts.baseName.empty()) parts.baseName = data.baseName;
  if (parts.extension.empty()) {
    const std::string_view standard =
        run.compactOptions != 0 ? data.extension.view() : run.defaultIndexExtension.view();
    if (!parts.extension.assign(standard)) return false;
  }
  if (!findAndBuildFileName(run, name, parts)) return false;
  if (parts.drive.empty() && parts.directory.empty()) {
    parts.drive = data.drive;
    parts.directory = data.directory;
  }
  return buildFileName(run, name, parts);
}

bool isNamedLikeInput(const RunContext& run) {
  return sameFileName(run.indexFileParts.baseName, run.dataFileParts.baseName) == 0 &&
         sameFileName(run.indexFileParts.extension, run.dataFileParts.extension) == 0;
}

bool isFileNamed(const char* name, int openFd) {
  int fd = ::open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const bool same = fd >= 0 && isSameFile(fd, openFd);
  closeFile(fd);
  return same;
}

// True when the existing file of the output's name is the input itself, by another name or through a link; or, in a
// compaction, the data file that the index is over.
bool isInputFile(const RunContext& run) {
  if (isFileNamed(run.outputName.c_str(), run.inputFd)) return true;
  if (run.compactOptions == 0) return false;
  int output = ::open(run.outputName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const bool same = output >= 0 && isFileNamed(indexedDataName(run.inputFd).c_str(), output);
  closeFile(output);
  return same;
}

StatusCode createIndexFile(RunContext& run) {
  if (isInputFile(run)) {
    run.outputName.clear();
    return status::outputIsInput;
  }
  if (!isFileNamed(run.outputName.c_str(), run.outputStreamFd)) {  // nor into the file that takes the messages
    const InterruptHold hold;
    run.outputFd = createFile(run.outputName.c_str(), run.inputFd, -1);
  }
  if (run.outputFd >= 0) return status::success;
  // Opened for the indexing alone, the data file is made accessible again for those who use it.
  static_cast<void>(::fchmod(run.inputFd, everyoneReadsAndWrites));
  return failWithOutput(run);
}

StatusCode openOutputFile(RunContext& run) {
  FileName name = run.outputName;
  if (!name.empty() && resolveFileName(run, name, nameCapacity, run.extensionSeparator) == 0) {
    return unresolvedOutput(run);
  }
  if (!completeOutputParts(run, name)) return unresolvedOutput(run);
  if (isNamedLikeInput(run)) {
    if (run.compactOptions == 0) {
      run.outputName.clear();
      return status::outputIsInput;
    }
    const InterruptHold hold;
    run.inPlace = true;
    run.outputFd = run.inputFd;  // messages go on naming the output as it was written on the command line
  } else {
    run.outputName = name;
    const StatusCode status = createIndexFile(run);
    if (status != status::success) return status;
  }
  if (run.debugMode) {
    putComposed(run, {run.compactOptions != 0 ? "Compact mode using " : "Created ", fileName(run.outputName),
                      " as output file\n"});
  }
  return status::success;
}

// --- the error file
// ---------------------------------------------------------------------------------------------------

StatusCode openErrorFile(RunContext& run) {
  FileNameParts parts = run.indexFileParts;
  parts.extension.assignCut(".ERR");
  bool created = buildFileName(run, run.errorFileName, parts);
  if (created) {
    const InterruptHold hold;
    run.errorFileFd = createFile(run.errorFileName.c_str(), run.inputFd, run.outputFd);
    created = run.errorFileFd >= 0;
  }
  if (!created) {
    return fail(run, status::outputNotCreated, {"Can't create output file ", fileName(run.errorFileName)});
  }
  if (run.debugMode) putComposed(run, {"Created ", fileName(run.errorFileName), " as error file\n"});
  return status::success;
}

StatusCode loadFirstBlock(RunContext& run) {
  run.inputReadPosition = 0;
  if (fillInputBuffer(run, run.inputFd) >= 0) return status::success;
  return fail(run, status::dataFileReadFailed,
              {"Invalid number of bytes read from input file: ", fileName(run.inputName)});
}

}  // namespace

StatusCode OpenDataFile(RunContext& run) {
  run.quitIfNoData = true;  // a missing file is not created
  const StatusCode status = openInputFile(run);
  return status == status::success ? loadFirstBlock(run) : status;
}

StatusCode OpenRunFiles(RunContext& run) {
  StatusCode status = openInputFile(run);
  if (status == status::success) status = openOutputFile(run);
  if (status != status::success || run.compactOptions != 0) return status;
  if (run.errorFileWanted) status = openErrorFile(run);
  return status == status::success ? loadFirstBlock(run) : status;
}

}  // namespace tarnvale
