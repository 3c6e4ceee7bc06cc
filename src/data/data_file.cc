#include "data/data_file.h"

#include <fcntl.h>

#include "common/interrupt_hold.h"
#include "common/limits.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::size_t maxStoredName = 255;  // characters that the index header keeps of the data file's name

StatusCode checkStoredName(const FileNameParts& parts, const Settings& settings, Messages& messages) {
  const std::size_t bare = parts.baseName.size() + parts.extension.size();
  if (settings.discardPathInHeader) {
    if (bare <= maxStoredName) return status::success;
    return failWith(messages, status::bareNameTooLong,
                    {"Filename+Extension size limited to 255 characters with 'z' option!"});
  }
  const std::size_t drive = settings.noDriveInHeader ? 0 : parts.drive.size();
  if (bare + parts.directory.size() + drive <= maxStoredName) return status::success;
  return failWith(messages, status::fullNameTooLong,
                  {"Full Path+Filename+Extension size limited to 255 characters without 'z' option!"});
}

bool createDataFile(TrackedFile& file) {
  const InterruptHold hold;
  file.fd = ::open(file.name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, everyoneReadsAndWrites);
  if (file.isOpen()) file.atEnd = AtEnd::removeAfterFailure;
  return file.isOpen();
}

bool isTooLargeForOffsets(const TrackedFile& file, const Settings& settings) {
  constexpr std::uint64_t offsetLimit = std::uint64_t{1} << 32;
  return !settings.recordNumberAddressing && fileSize(file.fd).value_or(0) >= offsetLimit;
}

StatusCode checkRecordLength(std::uint32_t found, const RecordFormat& format, const TrackedFile& file,
                             const Settings& settings, Messages& messages) {
  if (!settings.variableLength && found == 0 && settings.recordLength == 0) {
    return failWith(messages, status::recordLengthNotFound,
                    {"Unable to determine record length for fixed record length file: ", fileName(file.name)});
  }
  return found > maxRecordSize - format.mark.length ? status::recordTooLong : status::success;
}

// The lengths of the format; those given on the command line are without the mark.
void settleLengths(RecordFormat& format, std::uint32_t found, const Settings& settings) {
  format.givenLength = settings.recordLength == 0 ? 0 : settings.recordLength + format.mark.length;
  format.recordLimit = found == 0 || settings.binaryWithEor ? format.givenLength : found;
}

void reportExamined(const TrackedFile& file, EorConvention convention, Messages& messages) {
  if (!messages.debugMode) return;
  putComposed(messages, {"Opened ", fileName(file.name), " as input file\n"});
  putMessage(messages, "Expected End of Record for data file is ");
  putMessage(messages, eorConventionText(convention));
}

StatusCode examineDataFile(RecordFormat& format, const TrackedFile& file, const Settings& settings, Messages& messages,
                           std::span<std::uint8_t> buffer) {
  format = {};
  if (settings.markless) format.mark.length = 0;
  if (isTooLargeForOffsets(file, settings)) return status::dataFileTooLarge;
  EorConvention convention = EorConvention::notDefined;
  std::uint32_t found = settings.binaryRecords ? settings.recordLength : 0;
  if (!settings.binaryRecords || settings.binaryWithEor) {
    const bool lengthWanted = !settings.variableLength && settings.recordLength == 0;
    convention = detectEndOfRecord(file.fd, buffer, format.mark, lengthWanted ? &found : nullptr);
    if (convention == EorConvention::sizeUnknown) {
      return failWith(messages, status::dataFileSizeUnknown,
                      {"Unable to determine file size for input file: ", fileName(file.name)});
    }
  }
  const StatusCode status = checkRecordLength(found, format, file, settings, messages);
  if (status != status::success) return status;
  settleLengths(format, found, settings);
  reportExamined(file, convention, messages);
  return status::success;
}

}  // namespace

StatusCode openDataFile(DataFile& data, TrackedFiles& files, Messages& messages, const Settings& settings,
                        const FileNaming& naming, std::string_view name, IfMissing ifMissing,
                        std::span<std::uint8_t> buffer) {
  TrackedFile& file = files[FileRole::input];
  file.name.assignCut(name);
  if (!findInputName(naming, naming.dataExtension, file.name, data.nameParts)) {
    return failWith(messages, status::dataNameUnresolved,
                    {"Unable to resolve name for source file ", fileName(file.name)});
  }
  const StatusCode status = checkStoredName(data.nameParts, settings, messages);
  if (status != status::success) return status;
  const bool opened = openRegular(file, O_RDONLY) || (ifMissing == IfMissing::create && createDataFile(file));
  if (!opened) {
    return failWith(messages, status::dataFileNotOpened, {"Can't open source file ", fileName(file.name)});
  }
  return examineDataFile(data.format, file, settings, messages, buffer);
}

bool hasWholeRecords(const DataFile& data, const TrackedFile& file, const Settings& settings) {
  return !settings.binaryRecords || fileSize(file.fd).value_or(0) % data.format.givenLength == 0;
}

}  // namespace tarnvale
