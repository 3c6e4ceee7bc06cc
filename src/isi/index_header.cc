#include "isi/index_header.h"

#include <algorithm>

namespace tarnvale {

namespace {

std::uint8_t recordFlags(const Settings& settings, const EndOfRecordMark& mark) {
  std::uint8_t flags = mark.code;
  if (settings.writeAllAtEnd || settings.selection.optionCount > 0) flags |= record_flag::deletedNotKept;
  if (settings.binaryRecords && !settings.binaryWithEor) flags |= record_flag::binary;
  if (settings.spaceCompression) flags |= record_flag::spaceCompressed;
  if (settings.noDuplicates) flags |= record_flag::noDuplicates;
  if (settings.variableLength) flags |= record_flag::variableLength;
  if (settings.keys.upperCase) flags |= record_flag::upperCase;
  return flags;
}

// The name as stored: without its path where that is not wanted, and never with a drive.
std::string_view storedDataName(std::string_view name, const Settings& settings) {
  if (settings.discardPathInHeader) return name.substr(name.rfind('/') + 1);
  return name.size() > 1 && name[1] == ':' ? name.substr(2) : name;
}

template <std::size_t N>
void copyText(std::array<char, N>& field, std::string_view text) {
  text.copy(field.data(), N - 1);
}

}  // namespace

IsiHeader makeHeader(const Settings& settings, const Scanner& scanner, std::string_view dataName,
                     std::uint32_t deletedListHead) {
  const bool recordNumbers = settings.recordNumberAddressing;
  IsiHeader header{};
  header.magic = {'S', 'I', 'S', 'I'};
  header.versionWord = isiVersion;
  header.recordFlags = recordFlags(settings, scanner.mark);
  header.indexFlags = static_cast<std::uint8_t>(settings.osType | (recordNumbers ? index_flag::recordNumbers : 0));
  header.recordLength = static_cast<std::uint16_t>(scanner.recordLimit - scanner.mark.length);
  header.keyLength = static_cast<std::uint16_t>(settings.keys.keyLength);
  header.dataExtent =
      static_cast<std::uint32_t>(recordNumbers ? scanner.bytesRead() / scanner.recordLimit : scanner.bytesRead());
  header.deletedListHead = deletedListHead;
  header.rootPointer = pointerToOffset(rootOffset, recordNumbers);
  header.reserved24 = noPointer;
  header.recordCount = static_cast<std::uint32_t>(scanner.findings.recordCount);
  header.deletedCount = scanner.findings.deletedCount;
  header.selectTests = settings.selection.conditions;
  header.keySegments = settings.keys.specs;
  copyText(header.dataFileName, storedDataName(dataName, settings));
  copyText(header.storedCommandLine, settings.storedCommandLine);
  return header;
}

}  // namespace tarnvale
