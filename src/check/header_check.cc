#include "check/header_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "common/character_case.h"
#include "common/limits.h"

namespace tarnvale {

namespace {

struct HeaderField {
  const char* name;
  std::size_t offset;
  std::size_t width;  // up to 4 bytes it is a number
};
// What is left out is a compaction's or the list's.
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

// Without its directory, which may be reached by another name now.
std::string_view bareName(std::string_view name) { return name.substr(name.rfind('/') + 1); }

std::string_view withoutExtension(std::string_view name) { return name.substr(0, name.rfind('.')); }

// In a file of the other byte order the list is byte-swapped up to a length of 0 only. Such a length does not always
// end it: it stands for two columns downwards too.
bool sameSegments(const IsiHeader& found, const std::array<KeySpec, maxKeySpecs>& wanted) {
  std::size_t count = wanted.size();
  if (found.versionWord != isiVersion) {
    const auto end = std::ranges::find_if(wanted, [](const KeySpec& segment) { return segment.length == 0; });
    count = static_cast<std::size_t>(end - wanted.begin());
  }
  return std::memcmp(found.keySegments.data(), wanted.data(), count * sizeof(KeySpec)) == 0;
}

// A segment written downwards has a length of 0 or less, as a 16-bit number: 2 minus it is the number of its columns.
std::uint32_t columnsOf(const KeySpec& segment) {
  const auto written = static_cast<std::int16_t>(std::uint16_t{segment.length});
  return static_cast<std::uint32_t>(written > 0 ? written : 2 - written);
}

// The segments that can be read. In a file of the other byte order what stands behind a length of 0 is not swapped.
std::span<const KeySpec> readableSegments(const IsiHeader& header) {
  const std::span<const KeySpec> all = header.keySegments;
  if (header.versionWord == isiVersion) return all;
  const auto end = std::ranges::find_if(all, [](const KeySpec& segment) { return segment.length == 0; });
  return all.first(static_cast<std::size_t>(end - all.begin()));
}

bool isUsed(const KeySpec& segment) { return segment.length != 0 || segment.start != 0; }

// False when the segments that can be read do not make up the key.
bool segmentsFit(const IsiHeader& header) {
  const std::span<const KeySpec> segments = readableSegments(header);
  std::uint32_t length = 0;
  for (const KeySpec& segment : segments) length += isUsed(segment) ? columnsOf(segment) : 0;
  const bool all = segments.size() == header.keySegments.size() || !isUsed(header.keySegments[segments.size()]);
  return all ? length == header.keyLength : length < header.keyLength;
}

bool reachesBeyondRecords(const IsiHeader& header) {
  return std::ranges::any_of(readableSegments(header), [](const KeySpec& segment) {
    const auto written = static_cast<std::int16_t>(std::uint16_t{segment.length});
    return isUsed(segment) && (written > 0 ? segment.start + written > static_cast<int>(maxRecordSize)
                                           : segment.start + 1U < columnsOf(segment));
  });
}

template <std::size_t N>
bool hasEnd(const std::array<char, N>& field) {
  return std::ranges::find(field, '\0') != field.end();
}

template <std::size_t N>
bool allZero(const std::array<std::uint8_t, N>& bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}

bool sameName(std::string_view a, std::string_view b) { return compareNoCase(a, b) == 0; }

// Equal but for one place, where one has the "/" and the other the separator of the extension.
bool sameButForSlash(std::string_view written, std::string_view name) {
  const std::size_t slash = written.rfind('/');
  return written.size() == name.size() && slash != std::string_view::npos &&
         sameName(written.substr(0, slash), name.substr(0, slash)) &&
         sameName(written.substr(slash + 1), name.substr(slash + 1));
}

// The name in a command may name a volume that was set then or not, write "/" for the separator of its extension, or
// lack that.
bool namesDataFile(std::string_view written, std::string_view name) {
  const std::string_view bare = bareName(name);
  if (sameName(bareName(written), bare)) return true;
  std::string_view cut = written.substr(0, written.find(':'));
  if (cut.ends_with('.')) cut.remove_suffix(1);  // a name without an extension
  const std::string_view own = bareName(cut);
  const bool lacksExtension = own.find('.') == std::string_view::npos;
  if (sameName(own, bare) || (lacksExtension && sameName(own, withoutExtension(bare)))) return true;
  const std::size_t last = cut.rfind('/');
  if (last == std::string_view::npos) return false;
  const std::size_t before = cut.substr(0, last).rfind('/');  // none: npos + 1 is the beginning
  return sameButForSlash(cut.substr(before + 1), bare);
}

// Options n0 and n$ leave records out, also when a later d takes the flag back. Any text that may be one of them
// counts.
bool mayDropDuplicates(const IsiHeader& header) {
  const std::string_view command(header.storedCommandLine.data(), header.storedCommandLine.size());
  for (const char* const option : {"n0", "N0", "n$", "N$"}) {
    if (command.find(option) != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace

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
  if (!sameSegments(found, wanted.keySegments)) report.add("header, key segments: not what a build writes");
  if (bareName(textOf(found.dataFileName)) != bareName(textOf(wanted.dataFileName)))
    report.add("header, data file: another name");
}

void checkHeaderAlone(const IsiHeader& header, Report& report) {
  const auto wrong = [&](bool isWrong, const char* what) {
    if (isWrong) report.add("header, %s", what);
  };
  const std::uint8_t flags = header.recordFlags;
  const auto has = [flags](std::uint8_t bits) { return (flags & bits) != 0; };
  const bool byNumber = (header.indexFlags & index_flag::recordNumbers) != 0;
  constexpr std::uint8_t osTypes = 0x18;
  constexpr std::uint8_t knownIndexFlags = index_flag::recordNumbers | osTypes;
  wrong(header.versionWord != isiVersion && header.versionWord != isiVersionSwapped,
        "version: no build writes these bytes");
  wrong(header.rootPointer != pointerToOffset(rootOffset, byNumber), "root pointer: not where the root is");
  wrong(has(record_flag::spaceCompressed) && !has(record_flag::variableLength),
        "record flags: space compression of records of one length");
  wrong(has(record_flag::variableLength) && !has(record_flag::deletedNotKept),
        "record flags: deleted records of variable length are kept");
  wrong(has(record_flag::variableLength) && has(record_flag::binary),
        "record flags: binary records of variable length");
  wrong((header.indexFlags & ~knownIndexFlags) != 0 || (header.indexFlags & osTypes) == osTypes,
        "index flags: bits that no build sets");
  wrong(!segmentsFit(header), "key length: not that of the key segments");
  wrong(reachesBeyondRecords(header), "key segments: a column beyond any record");
  wrong(header.recordLength + markLengthOf(header) == 0, "record length: 0");
  wrong(!hasEnd(header.dataFileName), "data file: the name has no end");
  wrong(!hasEnd(header.storedCommandLine), "stored command line: the text has no end");
  wrong(header.reserved24 != noPointer || header.reserved28 != 0 || header.reserved36 != 0 || header.reserved40 != 0 ||
            !allZero(header.reserved52) || !allZero(header.reserved104),
        "reserved bytes: not what a build writes");
}

void checkEntryCount(const IsiHeader& header, std::uint64_t entries, Report& report) {
  const bool selects = header.selectTests.front().position != 0 || header.selectTests.back().character != 0;
  const bool someLeftOut = selects || mayDropDuplicates(header);
  if (someLeftOut ? entries > header.recordCount : static_cast<std::uint32_t>(entries) != header.recordCount) {
    report.add("header, record count: %" PRIu32 ", but the index has %s", std::uint32_t{header.recordCount},
               counted(entries, "entry").c_str());
  }
}

void checkStoredCommand(const IsiHeader& header, const Settings& stored, Report& report) {
  constexpr std::uint8_t compared = static_cast<std::uint8_t>(~record_flag::eorMask);
  std::uint8_t flags = 0;
  if (stored.writeAllAtEnd || stored.selection.optionCount > 0) flags |= record_flag::deletedNotKept;
  if (stored.binaryRecords && !stored.binaryWithEor) flags |= record_flag::binary;
  if (stored.spaceCompression) flags |= record_flag::spaceCompressed;
  if (stored.noDuplicates) flags |= record_flag::noDuplicates;
  if (stored.variableLength) flags |= record_flag::variableLength;
  if (stored.keys.upperCase) flags |= record_flag::upperCase;
  const std::uint8_t indexFlags =
      static_cast<std::uint8_t>(stored.osType | (stored.recordNumberAddressing ? index_flag::recordNumbers : 0));
  const auto differs = [&](bool different, const char* what) {
    if (different) report.add("stored command line: its %s are not those of the header", what);
  };
  differs(((header.recordFlags ^ flags) & compared) != 0 || header.indexFlags != indexFlags, "options");
  differs(header.keyLength != stored.keys.keyLength || !sameSegments(header, stored.keys.specs), "key columns");
  differs(std::memcmp(&header.selectTests, &stored.selection.conditions, sizeof header.selectTests) != 0, "conditions");
  if (!namesDataFile(stored.dataName, textOf(header.dataFileName))) {
    report.add("stored command line: its data file is not that of the header, which a rebuild would not find");
  }
}

std::uint32_t markLengthOf(const IsiHeader& header) {
  if ((header.recordFlags & record_flag::binary) != 0) return 0;
  return (header.recordFlags & record_flag::eorTwoBytes) != 0 ? 2 : 1;
}

}  // namespace tarnvale
