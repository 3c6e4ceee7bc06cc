// Random data files of every format, scanned in different ways that must give the same entries.
//
// The input: bytes that choose the format, the key, a selection and the size of the area; three bytes that say whether
// blocks end in the data and where, because what stands in front of it is made of so many of its first bytes; the data.
#include <algorithm>
#include <cstring>
#include <functional>

#include "cmdline/command_line.h"
#include "common/posix_file.h"
#include "data/whole_scan.h"
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

// A record of text goes to the first mark, wherever blocks end; `mark` is empty for binary records.
void checkScan(const WholeScan& found, std::string_view file, std::string_view mark) {
  demand(found.trainsAreRight, "only a full area ends a train early, and an end marker stands behind the entries");
  std::vector<std::uint64_t> lfas;
  for (const auto& [lfa, length, key] : found.records) {
    lfas.push_back(lfa);
    const std::size_t end = mark.empty() ? std::string_view::npos : file.find(mark, lfa);
    demand(end == std::string_view::npos || lfa + length == end + mark.size(), "a mark ends a record");
  }
  for (const auto& list : {lfas, found.deletedLfas}) {
    demand(std::ranges::adjacent_find(list, std::greater_equal()) == list.end(), "LFAs ascend");
    demand(list.empty() || list.back() < file.size(), "LFAs lie in the file");
  }
}

// Opens the file and scans it; how the opening ended, and what was found. `stale` is what the buffer holds before;
// nothing may depend on it.
std::pair<StatusCode, WholeScan> scan(const std::string& name, std::string_view bytes, const std::string& options,
                                      std::uint32_t room, std::uint8_t stale) {
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
  WholeScan found;
  TrackedFile& file = files[FileRole::input];
  const StatusCode opened = openDataFile(data, files, messages, command.settings, naming, name, IfMissing::fail,
                                         std::span(buffer).first(inputBlockSize));
  if (opened == status::success && hasWholeRecords(data, file, command.settings)) {
    Scanner scanner;
    demand(startScan(scanner, command.settings, data.format, file.fd, buffer.data(), messages), "the file can be read");
    found = scanToEnd(scanner, room, messages);
    const char mark[] = {static_cast<char>(scanner.mark.first), static_cast<char>(scanner.mark.second)};
    checkScan(found, bytes, {mark, scanner.markBehind});
  }
  closeFile(file.fd);
  return {opened, found};
}

}  // namespace

void tryInput(std::string_view input) {
  if (input.size() < chooserSize) return;
  const std::string_view data = input.substr(chooserSize);
  // Mostly nothing stands in front, and never 65536 empty records, which would take long.
  const std::size_t blocks = std::max(byteAt(input, 4) % 16U, 13U) - 13U;
  const std::size_t frontSize = blocks * inputBlockSize - (blocks > 0 ? byteAt(input, 5) : 0);
  std::string pattern(data.substr(0, byteAt(input, 6)));
  const bool repeatsMark = pattern.ends_with('\n') || pattern.ends_with('\r');
  pattern.resize(1000, pattern.empty() || repeatsMark ? 'x' : pattern.back());
  std::string bytes;
  while (bytes.size() < frontSize) bytes += pattern.substr(0, frontSize - bytes.size());
  bytes += data;
  static const ScratchFile file("data.TXT");
  file.fill(bytes);

  const std::string selection = selections[byteAt(input, 2) % std::size(selections)];
  const std::string options = formats[byteAt(input, 0) % std::size(formats)] +
                              std::string(keys[byteAt(input, 1) % std::size(keys)]) + selection;
  const auto first = scan(file.name(), bytes, options, 1 + byteAt(input, 3) % 16, 0x00);
  demand(scan(file.name(), bytes, options, 1000, '\n') == first, "the size of the area changes no entry");
  const std::string c = "\xFF";
  if (!selection.empty() || data.find(c) != std::string_view::npos) return;
  // No record holds this byte. Terms of column 1, since one of a column that a record does not reach never holds. The
  // last makes all keys by the column walk.
  const std::pair<std::string, std::uint8_t> conditions[] = {
      {",p" + std::to_string(1 + byteAt(input, 3) / 16 * 3) + "#" + c, '\t'},
      {",p=1#'" + c + "'", '\r'},
      {",p#1='" + c + "'|2='" + c + "',p1#" + c, ' '}};
  for (const auto& [condition, stale] : conditions) {
    demand(scan(file.name(), bytes, options + condition, 7, stale) == first,
           "a condition that always holds changes no entry");
  }
}

}  // namespace tarnvale
