// Random data files of every format, scanned in different ways that must give the same entries.
//
// The input: bytes that choose the format, the key, a selection and the size of the area; three bytes that say whether
// blocks end in the data and where, because what stands in front of it is made of so many of its first bytes; the data.
#include <algorithm>
#include <bitset>
#include <cstring>
#include <optional>
#include <vector>

#include "cmdline/command_line.h"
#include "common/posix_file.h"
#include "data/record_scan.h"
#include "fuzz_support.h"

namespace tarnvale {
namespace {

constexpr const char* formats[] = {  // record length, then options
    " -",      " -v,",       "L3 -",       " -s,",     "L4 -s,",    "L20 -v,b,",  " -b,",     " -f=16,", " -f=12,",
    " -g=15,", " -f=8,g=8,", "L65534 -v,", "L9 -v,w,", " -g=22,b,", " -f=65535,", "L65534 -", " -g=30,"};
constexpr const char* keys[] = {"1",     "1-3",   "u,1-9",       "9-2",   "2-4,9-8", "u,20-1,21",
                                "65534", "3-140", "100-101,1,7", "u,8-1", "17-40",   "u,7-5"};
constexpr const char* selections[] = {
    "",           "",         "", ",p1=a", ",p9#b", ",p3=  ", ",p2=\"\t\"", ",p1#a,p1#b", ",p=1='a'&9<>'b c'|2>='  '",
    ",p#2<='ab'", ",p=17>'x'"};
constexpr std::size_t chooserSize = 7;

template <std::size_t N>
std::string choose(const char* const (&table)[N], std::uint8_t byte) {
  return table[byte % N];
}

struct Outcome {
  StatusCode opened = status::success;
  ScanResult result = ScanResult::trainFull;
  std::string entries;
  std::vector<std::uint64_t> deleted;
  std::uint64_t recordCount = 0;
  std::uint64_t failedAt = 0;  // the record that a failure names
  bool operator==(const Outcome&) const = default;
};

// A record of text goes to the first mark, wherever blocks end; `mark` is empty for binary records.
void checkTrain(const EntryArea& area, std::uint32_t entries, std::string_view file, std::string_view mark,
                std::optional<std::uint64_t>& last) {
  const std::uint8_t* entry = area.first;
  for (; entries > 0; --entries, entry += area.entrySize) {
    const std::uint64_t lfa = entryLfa(entry);
    demand(lfa < file.size() && (!last || *last < lfa), "LFAs ascend and lie in the file");
    last = lfa;
    const std::size_t end = mark.empty() ? std::string_view::npos : file.find(mark, lfa);
    demand(end == std::string_view::npos || entryRecordLength(entry) == end + mark.size() - lfa,
           "a mark ends a record");
  }
  demand(isEndMarker(entry), "an end marker stands behind the entries");
}

// Scans the file to its end in areas of `room` entries.
void scanAll(Scanner& scanner, std::string_view file, std::uint32_t room, Messages& messages, Outcome& outcome) {
  const char markBytes[] = {static_cast<char>(scanner.mark.first), static_cast<char>(scanner.mark.second)};
  const std::string_view mark(markBytes, scanner.markBehind);
  const auto entrySize = static_cast<std::uint32_t>(scanner.settings->keys.keyLength + sortEntryHeadSize);
  std::vector<std::uint8_t> memory(std::size_t{room + 1} * entrySize);
  const EntryArea area{memory.data(), room, entrySize};
  std::optional<std::uint64_t> lastLfa;
  const auto takeDeleted = [&](std::uint64_t lfa) {
    demand(outcome.deleted.empty() || outcome.deleted.back() < lfa, "LFAs of deleted records ascend");
    demand(lfa < file.size(), "deleted records lie in the file");
    outcome.deleted.push_back(lfa);
    return true;
  };
  while (outcome.result == ScanResult::trainFull) {
    const ScannedTrain train = createSubList(scanner, area, messages, takeDeleted);
    demand(train.entries <= room, "the entries lie in the area");
    demand(train.result != ScanResult::trainFull || train.entries == room, "only a full area ends a train early");
    checkTrain(area, train.entries, file, mark, lastLfa);
    outcome.entries.append(reinterpret_cast<const char*>(area.first), std::size_t{train.entries} * entrySize);
    outcome.result = train.result;
  }
  outcome.recordCount = scanner.findings.recordCount;
  if (outcome.result != ScanResult::inputExhausted) outcome.failedAt = scanner.currentLfa;
}

// Opens the file and scans it. `stale` is what the buffer holds before; nothing may depend on it.
Outcome scan(const std::string& name, std::string_view bytes, const std::string& options, std::uint32_t room,
             std::uint8_t stale) {
  static const Environment environment;
  static Messages messages;
  messages.debugMode = true;
  static TrackedFiles files;
  static std::vector<std::uint8_t> buffer(scanBufferSize);
  std::memset(buffer.data(), stale, buffer.size());  // not a loop, which would be the slowest part
  const auto goOn = [](const Settings&) { return status::success; };
  const ParsedCommand command = parseCommandLine("data,isi," + options, environment, messages, goOn);
  demand(command.status == status::success, "the options of the tables are right");

  FileNaming naming;
  naming.environment = &environment;
  DataFile data;
  Outcome outcome;
  TrackedFile& file = files[FileRole::input];
  outcome.opened = openDataFile(data, files, messages, command.settings, naming, name, IfMissing::fail,
                                std::span(buffer).first(inputBlockSize));
  if (outcome.opened == status::success && hasWholeRecords(data, file, command.settings)) {
    Scanner scanner;
    demand(startScan(scanner, command.settings, data.format, file.fd, buffer.data(), messages), "the file can be read");
    scanAll(scanner, bytes, room, messages, outcome);
  }
  closeFile(file.fd);
  return outcome;
}

// A byte that no record holds and that means nothing to the option section.
std::optional<char> absentByte(std::string_view data) {
  std::bitset<256> used;
  for (const char c : data) used.set(static_cast<std::uint8_t>(c));
  for (std::size_t byte = 0xFF; byte >= 0x80; --byte) {
    if (!used[byte]) return static_cast<char>(byte);
  }
  return std::nullopt;
}

}  // namespace
}  // namespace tarnvale

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  using namespace tarnvale;
  if (size < chooserSize) return 0;
  const std::string_view data(reinterpret_cast<const char*>(input + chooserSize), size - chooserSize);
  // Mostly nothing stands in front, and never 65536 empty records, which would take long.
  const std::size_t blocks = std::max(input[4] % 16U, 13U) - 13U;
  const std::size_t frontSize = blocks * inputBlockSize - (blocks > 0 ? input[5] : 0);
  std::string pattern(data.substr(0, input[6]));
  const bool repeatsMark = pattern.ends_with('\n') || pattern.ends_with('\r');
  pattern.resize(1000, pattern.empty() || repeatsMark ? 'x' : pattern.back());
  std::string bytes;
  while (bytes.size() < frontSize) bytes += pattern.substr(0, frontSize - bytes.size());
  bytes += data;
  static const ScratchFile file("data.TXT");
  file.fill(bytes);

  const std::string selection = choose(selections, input[2]);
  const std::string options = choose(formats, input[0]) + choose(keys, input[1]) + selection;
  const Outcome first = scan(file.name(), bytes, options, 1 + input[3] % 16, 0x00);
  demand(scan(file.name(), bytes, options, 1000, '\n') == first, "the size of the area changes no entry");
  const std::optional<char> absent = absentByte(data);
  if (!selection.empty() || !absent) return 0;
  const std::string condition = ",p" + std::to_string(1 + input[3] / 16 * 3) + "#" + *absent;
  demand(scan(file.name(), bytes, options + condition, 7, '\t') == first,
         "a condition that always holds changes no entry");
  // Of column 1, since a term of a column that a record does not reach never holds.
  const std::string expression = std::string(",p=1#'") + *absent + "'";
  demand(scan(file.name(), bytes, options + expression, 7, '\r') == first,
         "an expression that always holds changes no entry");
  return 0;
}
