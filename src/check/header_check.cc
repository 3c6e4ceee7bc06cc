#include "check/header_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <span>

#include "isi/index_header.h"

namespace tarnvale {

namespace {

struct HeaderField {
  const char* name;
  std::size_t offset;
  std::size_t width;  // up to 4 bytes it is a number
};
// What is left out is a compaction's or the list's, or has a rule of its own.
constexpr HeaderField fields[] = {
    {"record flags", offsetof(IsiHeader, recordFlags), 1},
    {"index flags", offsetof(IsiHeader, indexFlags), 1},
    {"record length", offsetof(IsiHeader, recordLength), 2},
    {"key length", offsetof(IsiHeader, keyLength), 2},
    {"data extent", offsetof(IsiHeader, dataExtent), 4},
    {"root pointer", offsetof(IsiHeader, rootPointer), 4},
    {"reserved bytes 24 to 31", offsetof(IsiHeader, reserved24), 8},
    {"reserved bytes 36 to 43", offsetof(IsiHeader, reserved36), 8},
    {"reserved bytes 52 to 63", offsetof(IsiHeader, reserved52), 12},
    {"reserved bytes 104 to 111", offsetof(IsiHeader, reserved104), 8},
    {"record count", offsetof(IsiHeader, recordCount), 4},
    {"deleted-record count", offsetof(IsiHeader, deletedCount), 4},
    {"selection", offsetof(IsiHeader, selectTests), sizeof(IsiHeader::selectTests)},
};

const std::uint8_t* bytesOf(const IsiHeader& header, const HeaderField& field) {
  return reinterpret_cast<const std::uint8_t*>(&header) + field.offset;
}

std::uint32_t valueOf(const IsiHeader& header, const HeaderField& field) {
  Le32 value{};
  std::memcpy(value.bytes.data(), bytesOf(header, field), field.width);
  return value;
}

bool isSame(KeySpec found, const KeySpec& wanted, bool mayBeSwapped) {
  if (std::memcmp(&found, &wanted, sizeof found) == 0) return true;
  if (!mayBeSwapped) return false;
  swapBytes(found.start);
  swapBytes(found.length);
  return std::memcmp(&found, &wanted, sizeof found) == 0;
}

// In a file of the other byte order the ranges are byte-swapped up to a length of 0 only. Such a length does not always
// end them, it stands for two columns downwards too; from there on either order will do.
bool sameSegments(const IsiHeader& found, const IsiHeader& wanted) {
  bool mayBeSwapped = false;
  for (std::size_t i = 0; i < maxKeySpecs; ++i) {
    mayBeSwapped = mayBeSwapped || (found.versionWord == isiVersionSwapped && wanted.keySegments[i].length == 0);
    if (!isSame(found.keySegments[i], wanted.keySegments[i], mayBeSwapped)) return false;
  }
  return true;
}

// A text and its NUL, and nothing behind it.
bool isStoredText(std::span<const char> field) {
  const auto end = std::ranges::find(field, '\0');
  return end != field.begin() && end != field.end() && std::all_of(end, field.end(), [](char c) { return c == '\0'; });
}

// The mark that the header names. Option f alone has none, but the flags of a line feed.
EndOfRecordMark markOf(const Settings& settings, const IsiHeader& header) {
  EndOfRecordMark mark;
  if (settings.binaryRecords && !settings.binaryWithEor) {
    mark.length = 0;
    return mark;
  }
  mark.code = header.recordFlags & record_flag::eorMask;
  mark.length = (mark.code & record_flag::eorTwoBytes) != 0 ? 2 : 1;
  return mark;
}

}  // namespace

void checkForm(const IsiHeader& header, Report& report) {
  if (header.versionWord != isiVersion && header.versionWord != isiVersionSwapped) {
    report.add("header, version: the bytes %02X %02X instead of 03 FC or FC 03", header.versionWord.bytes[0],
               header.versionWord.bytes[1]);
  }
  if (!isStoredText(header.dataFileName)) report.add("header, data file: not what a build writes");
  if (!isStoredText(header.storedCommandLine)) report.add("header, command: not what a build writes");
}

void checkHeader(const IsiHeader& found, const IsiHeader& wanted, Report& report) {
  for (const HeaderField& field : fields) {
    if (std::memcmp(bytesOf(found, field), bytesOf(wanted, field), field.width) == 0) continue;
    if (field.width > sizeof(Le32)) {
      report.add("header, %s: not what a build writes", field.name);
    } else {
      report.add("header, %s: %" PRIu32 " instead of %" PRIu32, field.name, valueOf(found, field),
                 valueOf(wanted, field));
    }
  }
  if (!sameSegments(found, wanted)) report.add("header, key segments: not what a build writes");
}

IsiHeader expectedHeader(const Settings& settings, const IsiHeader& found) {
  const std::uint32_t recordLength = settings.recordLength != 0 ? settings.recordLength : found.recordLength;
  Scanner scanner;
  scanner.mark = markOf(settings, found);
  scanner.recordLimit = std::max<std::uint32_t>(recordLength + scanner.mark.length, 1);
  IsiHeader header = makeHeader(settings, scanner, textOf(found.dataFileName), found.deletedListHead);
  header.dataExtent = found.dataExtent;
  header.recordCount = found.recordCount;
  header.deletedCount = settings.variableLength ? 0 : std::uint32_t{found.deletedCount};  // NUL bytes are none there
  return header;
}

void checkExtent(const IsiHeader& header, Report& report) {
  // One more where the last record lacks its mark: the extent counts whole places.
  const std::uint64_t places = std::uint64_t{header.dataExtent} + 1;
  const std::uint64_t records = std::uint64_t{header.recordCount} + header.deletedCount;
  if (records <= places) return;
  report.add("header, data extent: %" PRIu32 ", but there are %" PRIu64 " records and deleted records",
             std::uint32_t{header.dataExtent}, records);
}

void checkRecordCount(const IsiHeader& header, std::uint64_t entries, const Settings* settings, Report& report) {
  const bool mayLeaveOut = settings == nullptr || settings->selection.optionCount > 0 || settings->ignoreDuplicates;
  if (mayLeaveOut ? entries <= header.recordCount : static_cast<std::uint32_t>(entries) == header.recordCount) return;
  report.add("header, record count: %" PRIu32 ", but the index has %s", std::uint32_t{header.recordCount},
             counted(entries, "entry").c_str());
}

}  // namespace tarnvale
