#include "check/header_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <string_view>

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
std::string_view bareDataName(const IsiHeader& header) {
  const std::string_view field(header.dataFileName.data(), header.dataFileName.size() - 1);
  const std::string_view name = field.substr(0, field.find('\0'));
  return name.substr(name.rfind('/') + 1);
}

// In a file of the other byte order the list is turned up to a length of 0 only. Such a length does not always end it:
// it stands for two columns downwards too.
bool sameSegments(const IsiHeader& found, const IsiHeader& wanted) {
  std::size_t count = wanted.keySegments.size();
  if (found.versionWord != isiVersion) {
    const auto end =
        std::ranges::find_if(wanted.keySegments, [](const KeySpec& segment) { return segment.length == 0; });
    count = static_cast<std::size_t>(end - wanted.keySegments.begin());
  }
  return std::memcmp(found.keySegments.data(), wanted.keySegments.data(), count * sizeof(KeySpec)) == 0;
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
  if (!sameSegments(found, wanted)) report.add("header, key segments: not what a build writes");
  if (bareDataName(found) != bareDataName(wanted)) report.add("header, data file: another name");
}

void checkHeaderAlone(const IsiHeader& header, std::uint64_t entries, Report& report) {
  const bool selects = header.selectTests.front().position != 0 || header.selectTests.back().character != 0;
  const bool someLeftOut = selects || mayDropDuplicates(header);
  if (someLeftOut ? entries > header.recordCount : static_cast<std::uint32_t>(entries) != header.recordCount) {
    report.add("header, record count: %" PRIu32 ", but the index has %s", std::uint32_t{header.recordCount},
               counted(entries, "entry").c_str());
  }
}

}  // namespace tarnvale
