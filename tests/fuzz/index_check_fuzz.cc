// Random bytes for tarnvale-check to judge, beside a data file that stays.
//
// The input is the index. The data file is the one that make_seeds builds its indexes over. What those must hold, by
// the command that they keep, another reader looks up in an index that is called right.
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "check/index_check.h"
#include "fuzz_support.h"
#include "support/index_file.h"

namespace tarnvale {
namespace {

constexpr std::uint32_t recordCount = 24;
constexpr std::uint32_t recordSize = 101;
constexpr std::size_t commandOffset = 496;

// A command of make_seeds, as an index keeps it.
struct KnownIndex {
  const char* command;
  std::size_t keyStart;  // in the record
  std::size_t keyLength;
  bool recordNumbers;  // then it has a list of deleted records too
  std::uint32_t fill;  // entries to a node as it was built; 0: as many as fit
};
constexpr KnownIndex knownIndexes[] = {
    {"data,index,-1-80", 0, 80, true, 0},       {"data,index,-v,1-80", 0, 80, false, 0},
    {"data,index,-8-9", 7, 2, true, 0},         {"data,index,-x,1-10", 0, 10, true, 0},
    {"data,index,-f=101,1-90", 0, 90, true, 0}, {"data,index,-m33,1-7", 0, 7, true, 8}};

std::string makeData() {
  std::string data;
  char record[recordSize + 1];
  for (std::uint32_t i = 1; i <= recordCount; ++i) {
    std::snprintf(record, sizeof record, "record %02u %090u\n", i * 7 % recordCount, i);
    data += record;
  }
  return data + std::string(std::size_t{2} * recordSize, '\0');
}

int check(const ScratchFile& index, bool structureOnly) {
  TrackedFiles files;
  void* const memoryEnd = ::sbrk(0);
  const int status = checkIndex({false, structureOnly, index.name().c_str()}, files);
  demand(::brk(memoryEnd) == 0, "the sort area can be given back");
  demand(status >= 0 && status <= 2, "the exit status is one of the three");
  return status;
}

// `complete`: the entries were compared with the data file too.
void lookUp(const std::string& index, const std::string& data, const KnownIndex& known, bool complete) {
  IndexFile found = readIndex(index);
  if (!found.faults.empty()) found = readIndex(index, known.fill);
  demand(found.faults.empty(), "each node of a right index is in its place, and as full as it must be");
  if (!complete) return;
  std::vector<DataRecord> records;
  for (std::uint64_t lfa = 0; lfa < std::uint64_t{recordCount} * recordSize; lfa += recordSize) {
    records.push_back({lfa, recordSize, data.substr(lfa + known.keyStart, known.keyLength)});
  }
  demand(found.entries == expectedEntries(records, known.recordNumbers),
         "a complete index has the entries of its data");
  using Deleted = std::vector<std::uint32_t>;
  const Deleted deleted = known.recordNumbers ? Deleted{recordCount, recordCount + 1} : Deleted{};
  demand(found.deleted == deleted, "a complete index has the list of deleted records");
}

}  // namespace

void tryInput(std::string_view input) {
  static std::FILE* const nowhere = std::fopen("/dev/null", "w");
  stdout = stderr = nowhere;  // for what the check says; fuzzer and sanitizers do not write through these
  static const std::string data = makeData();
  static const ScratchFile dataFile("data.TXT", data);
  static const ScratchFile indexFile("index.ISI");
  const std::string index(input);
  indexFile.fill(index);
  const int alone = check(indexFile, true);
  const int whole = check(indexFile, false);
  demand(whole != 0 || alone == 0, "what is complete is right by itself");
  if (alone != 0) return;
  const auto* const known = std::ranges::find_if(
      knownIndexes, [&](const KnownIndex& row) { return &index[commandOffset] == std::string_view(row.command); });
  if (known != std::end(knownIndexes)) lookUp(index, data, *known, whole == 0);
}

}  // namespace tarnvale
