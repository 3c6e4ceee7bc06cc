#include "support/test_parts.h"

#include "cmdline/command_line.h"
#include "common/interrupt_hold.h"
#include "isi/index_build.h"
#include "isi/index_file.h"
#include "sort/work_files.h"

namespace tarnvale {

TestSorter::TestSorter(std::uint32_t areaSize, const SortLimits& sortLimits)
    : areaMemory(areaSize + readableBehindArea) {
  limits = sortLimits;
  area.base = areaMemory.data();
  area.size = areaSize;
  if (!memory.allocateBuffers() || !memory.allocateTrainTable(limits.maxTrains)) std::abort();
}

bool TestSorter::start(std::uint32_t keyLength, Messages& messages) {
  return startSorter(*this, memory, limits, keyLength, messages);
}

StatusCode TestScan::open(std::string_view bytes, const std::string& options, const std::string& recordLength) {
  folder.write("data.txt", bytes);
  return openExisting(options, recordLength);
}

StatusCode TestScan::openExisting(const std::string& options, const std::string& recordLength) {
  const std::string line = folder.path("data.txt,out.isi,") + recordLength + "," + folder.path("tmp -") + options;
  const Environment environment;
  const auto makeNoFiles = [](const Settings&) { return status::success; };
  settings = parseCommandLine(line, environment, messages, makeNoFiles).settings;
  const FileNaming naming = readFileNaming(environment);
  FileNameParts indexParts;
  bool inPlace = false;
  StatusCode status =
      openDataFile(data, files, messages, settings, naming, settings.dataName, IfMissing::fail, {buffer.get(), 65536});
  if (status == status::success) {
    status = openIndexFile(files, messages, settings, naming, data.nameParts, indexParts, inPlace);
  }
  if (status == status::success && settings.errorFileWanted) {
    status = openErrorFile(files, messages, naming, indexParts);
  }
  if (status != status::success) return status;
  const int fd = files[FileRole::input].fd;
  return startScan(scanner, settings, data.format, fd, buffer.get(), messages) ? 0 : status::dataFileReadFailed;
}

StatusCode TestBuild::build(std::string_view bytes, const std::string& options, const std::string& recordLength) {
  const StatusCode status = open(bytes, options, recordLength);
  return status == status::success ? buildOpened() : status;
}

StatusCode TestBuild::buildOpened() {
  if (!createWorkFiles(files, messages, settings.tempPath, "")) return status::workFileNotCreated;
  if (!sorter.start(settings.keys.keyLength, messages)) return status::outOfMemory;
  const Failure failure = buildIndex(settings, scanner, sorter, builder, files, messages);
  closeErrorFile(builder.duplicates, files[FileRole::errorFile], messages);
  const InterruptHold hold;
  releaseFile(files[FileRole::index], RunEnd::success);
  return failure.code;
}

}  // namespace tarnvale
