#include "isi/index_header.h"

#include <algorithm>

#include "common/output.h"

namespace tarnvale {

namespace {

std::uint8_t recordFlags(const RunContext& run) {
  std::uint8_t flags = run.eorCode;
  if (run.writeAllAtEnd || run.primaryOptionCount > 0) flags |= record_flag::deletedNotKept;
  if (run.binaryRecords && !run.binaryWithEor) flags |= record_flag::binary;
  if (run.spaceCompressionAllowed) flags |= record_flag::spaceCompressed;
  if (run.noDuplicates) flags |= record_flag::noDuplicates;
  if (run.variableLengthAllowed) flags |= record_flag::variableLength;
  if (run.upperCaseKeys) flags |= record_flag::upperCase;
  return flags;
}

// The name as stored: without its path where that is not wanted, and never with a drive.
std::string_view storedDataName(const RunContext& run) {
  const std::string_view name = run.inputName;
  if (run.discardPathInHeader) return name.substr(name.rfind('/') + 1);
  return name.size() > 1 && name[1] == ':' ? name.substr(2) : name;
}

template <std::size_t N>
void copyText(std::array<char, N>& field, std::string_view text) {
  text.copy(field.data(), N - 1);
}

}  // namespace

StatusCode settleHeaderLength(RunContext& run) {
  if (run.foundRecordLength != 0) {
    if (!run.binaryWithEor) run.foundRecordLength -= run.eorLength;
  } else if (run.recordLengthSpec != 0) {
    run.foundRecordLength = run.recordLengthSpec - run.eorLength;
  } else if (run.indexedRecordCount == 0) {
    PutMessage(run, "\aNull file must have record length on command line\n");
    return status::recordLengthUnknown;
  }
  return status::success;
}

IsiHeader makeHeader(const RunContext& run) {
  const std::uint32_t markLength = run.binaryWithEor ? run.binaryEorLength : run.eorLength;
  const auto length = static_cast<std::uint32_t>(run.foundRecordLength) - (run.binaryWithEor ? markLength : 0);
  IsiHeader header{};
  header.magic = {'S', 'I', 'S', 'I'};
  header.versionWord = isiVersion;
  header.recordFlags = recordFlags(run);
  header.indexFlags =
      static_cast<std::uint8_t>(run.osType | (run.recordNumberAddressing ? index_flag::recordNumbers : 0));
  header.recordLength = static_cast<std::uint16_t>(length);
  header.keyLength = static_cast<std::uint16_t>(run.indexKeyLength);
  header.dataExtent = static_cast<std::uint32_t>(
      run.recordNumberAddressing ? run.inputReadPosition / (length + markLength) : run.inputReadPosition);
  header.deletedListHead = run.previousListPointer;
  header.rootPointer = pointerToOffset(rootOffset, run.recordNumberAddressing);
  header.reserved24 = noPointer;
  header.recordCount = static_cast<std::uint32_t>(run.scannedRecordCount);
  header.deletedCount = run.deletedRecordCount;
  header.selectTests = run.primaryConditions;
  header.keySegments = run.keySpecs;
  copyText(header.dataFileName, storedDataName(run));
  copyText(header.storedCommandLine, run.storedCommandLine);
  return header;
}

}  // namespace tarnvale
