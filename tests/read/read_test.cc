// The real tarnvale-read, on sound indexes and on damaged ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <sstream>
#include <tuple>

#include "support/data_sample.h"
#include "support/held_lock.h"
#include "support/index_file.h"
#include "support/program_run.h"

namespace tarnvale {
namespace {

using Entries = std::vector<IndexEntry>;

// Output and messages of the program come together.
ProgramResult readWith(const TestFolder& folder, const std::string& arguments) {
  const auto joinMessages = [] { ::dup2(STDOUT_FILENO, STDERR_FILENO); };
  return runProgram(folder, arguments, joinMessages, TARNVALE_READ_PROGRAM);
}

// A key as the program writes it; in an argument, which a blank would end, `firstPlain` is behind the blank.
std::string escaped(const std::string& key, char firstPlain = ' ') {
  std::string text;
  char number[5];
  for (const char c : key) {
    std::snprintf(number, sizeof number, "\\x%02X", static_cast<unsigned char>(c));
    text += c == '\\' ? "\\\\" : c >= firstPlain && c <= '~' ? std::string(1, c) : number;
  }
  return text;
}
std::string asArgument(const std::string& key) { return escaped(key, '!'); }

std::uint64_t lfaOf(const IndexEntry& entry, bool recordNumbers) {
  return recordNumbers ? std::uint64_t{entry.position} * entry.recordLength : entry.position;
}

std::string asLines(const Entries& entries, bool recordNumbers) {
  std::ostringstream lines;
  for (const IndexEntry& entry : entries) {
    lines << entry.position << '\t' << lfaOf(entry, recordNumbers) << '\t' << entry.recordLength << '\t'
          << entry.duplicateNumber << '\t' << escaped(entry.key) << '\n';
  }
  return lines.str();
}

// Those from the first key that begins with `from` or comes later to the last one that begins with `to`.
Entries inRange(Entries entries, const std::string& from, const std::string& to) {
  std::erase_if(entries, [&](const IndexEntry& entry) {
    return entry.key.compare(0, from.size(), from) < 0 || entry.key.compare(0, to.size(), to) > 0;
  });
  return entries;
}

// A sample with its index, and the list that was made without it.
struct ReadSample : TestFolder {
  ReadSample(int turn, std::mt19937& random) : sample(makeSample(turn, 60000, random)) {
    write("data.TXT", sample.bytes);
    const std::string command = "data,idx," + sample.recordLength + " -" + sample.options;
    EXPECT_EQ(runProgram(*this, command).exitStatus, 0) << command;
    entries = expectedEntries(sample.records, sample.recordNumbers);
    constexpr const char* marks[] = {"\r", "\r\n", "\n", "\n\r"};
    if (turn % 5 != 3) mark = marks[turn % 4];
  }

  void expect(const std::string& arguments, const Entries& wanted, bool records) const {
    std::string output = records ? "" : asLines(wanted, sample.recordNumbers);
    for (const IndexEntry& entry : records ? wanted : Entries{}) {
      output += sample.bytes.substr(lfaOf(entry, sample.recordNumbers), entry.recordLength - mark.size()) + mark;
    }
    const ProgramResult result = readWith(*this, arguments + (records ? " idx -r" : " idx"));
    EXPECT_EQ(result.exitStatus, wanted.empty() ? 1 : 0) << arguments;
    EXPECT_TRUE(result.output == output) << arguments << (records ? " -r" : "\n" + result.output);
  }

  DataSample sample;
  Entries entries;
  std::string mark;
};

TEST(Read, WritesAllEntriesKeysAndRangesOfEveryFormatInBothByteOrders) {
  std::mt19937 random(11);
  for (int turn = 0; turn < 20; ++turn) {  // five formats, four marks
    const ReadSample s(turn, random);
    const Entries backwards(s.entries.rbegin(), s.entries.rend());
    const auto randomKey = [&](std::size_t least) {
      std::string key = s.entries[random() % s.entries.size()].key;
      if (random() % 4 == 0) key[random() % key.size()] = static_cast<char>('A' + random() % 4);
      return key.substr(0, least + random() % (key.size() + 1 - least));
    };
    if (turn % 3 == 0) s.write("idx.ISI", otherByteOrder(s.read("idx.ISI")));
    for (const bool records : {false, true}) {
      s.expect("-n 99999999", s.entries, records);
      s.expect("-b", backwards, records);
    }
    const bool records = turn % 2 == 0;
    const std::string key = randomKey(5);
    const std::string from = randomKey(0);
    const std::string to = randomKey(1);
    s.expect("-k " + asArgument(key), inRange(s.entries, key, key), records);
    s.expect("-p " + asArgument(to), inRange(s.entries, to, to), records);
    s.expect("-f " + asArgument(from) + " -t " + asArgument(to), inRange(s.entries, from, to), !records);
    Entries some = inRange(backwards, from, "");
    some.resize(std::min<std::size_t>(some.size(), 3));
    s.expect("-b -n 3 -f " + asArgument(from), some, !records);
  }
}

// A data file and its index idx.isi.
struct Indexed : TestFolder {
  Indexed(const std::string& data, const std::string& options) {
    write("data.txt", data);
    EXPECT_EQ(runProgram(*this, "data.txt,idx.isi" + options).exitStatus, 0) << options;
  }
};

// Towns in upper case, two of most.
struct Towns : Indexed {
  Towns() : Indexed("Porto\nOslo\nrig\\~\nPorto\nO\xF8sl\nOslo\n", ",L6 -v,u,1-6") {}
};

TEST(Read, TakesArgumentsAsDocumented) {
  const Towns folder;
  const std::string oslo = "6\t6\t5\t0\tOSLO  \n28\t28\t5\t1\tOSLO  \n";
  // arguments; exit status; the output, or its beginning where that is no line and no object of JSON
  const std::tuple<const char*, int, std::string> cases[] = {
      {"-k oslo idx.isi", 0, oslo},  // folded and filled up
      {"-t O -f \\x4f idx.isi", 0, oslo + "23\t23\t5\t0\tO\\xF8SL  \n"},
      {"-k rig\\\\~ idx.isi", 0, "11\t11\t6\t0\tRIG\\\\~ \n"},
      {"--json -n 1 idx.isi", 0, R"({"position":6,"lfa":6,"length":5,"duplicate":0,"key":"OSLO  "})"},
      {"--json -p o\\xF8 idx.isi", 0, R"({"position":23,"lfa":23,"length":5,"duplicate":0,"keyHex":"4FF8534C2020"})"},
      {"--json -k rig\\\\~ idx.isi", 0, R"({"position":11,"lfa":11,"length":6,"duplicate":0,"key":"RIG\\~ "})"},
      {"--json --header idx.isi", 0,
       R"({"dataFile":"data.txt","command":"data.txt,idx.isi,L6 -v,u,1-6","recordLength":6,"endOfRecord":"LF",)"
       R"("variableLength":true,"tabsForBlanks":false,"keyLength":6,"keyColumns":"1-6","upperCase":true,)"
       R"("equalKeys":true,"recordsScanned":6,"deletedRecords":0,"deletedKept":false,"dataExtent":33,)"
       R"("recordNumbers":false,"changeCounter":0,"bigEndian":false})"},
      {"--header idx.isi", 0, "Data file:               data.txt\nCommand: "},
      {"-n 0 idx.isi", 1, ""},
      {"-k Lisbon+ idx.isi", 2, "The key is longer than those of the index: idx.isi\n"},
      {"-k \\x4 idx.isi", 2, "tarnvale-read: neither \\xHH nor \\\\ at a backslash: \\x4\nUsage: "},
      {"-k \\x4g idx.isi", 2, "tarnvale-read: no two hexadecimal digits behind \\x: \\x4g\nUsage: "},
      {"-k O -t P idx.isi", 2, "tarnvale-read: a second key for one end of the range: P\nUsage: "},
      {"-n -1 idx.isi", 2, "tarnvale-read: not a number of entries: -1\nUsage: "},
      {"--header -b idx.isi", 2, "tarnvale-read: --header goes with --json only\nUsage: "},
      {"-r --json idx.isi", 2, "tarnvale-read: -r and --json exclude each other\nUsage: "},
      {"-b", 2, "tarnvale-read: one index is to be named\nUsage: "},
      {"nowhere.isi", 2, "Can't open .isi file nowhere.isi\n"},
      {"data.txt", 2, "data.txt: its first 2048 bytes are not those of an index\n"},
      {"-h", 0, "Usage: tarnvale-read "},
      {"--version", 0, "tarnvale-read  Version "},
  };
  for (const auto& [arguments, exitStatus, output] : cases) {
    const ProgramResult result = readWith(folder, arguments);
    EXPECT_EQ(result.exitStatus, exitStatus) << arguments;
    const std::string wanted = output + (output.ends_with('}') ? "\n" : "");
    const bool whole = wanted.ends_with('\n') || wanted.empty();
    EXPECT_EQ(result.output.substr(0, whole ? std::string::npos : wanted.size()), wanted) << arguments;
  }
  const auto closeOutput = [] { ::close(STDOUT_FILENO); };  // the index must not come in its place
  EXPECT_EQ(runProgram(folder, "idx.isi", closeOutput, TARNVALE_READ_PROGRAM).exitStatus, 0);
}

// More lines than the output is collected for, and than a pipe has room for.
std::string manyLines() {
  std::string data;
  for (int i = 10000; i < 20000; ++i) data += std::to_string(i) + "\n";
  return data;
}

TEST(Read, SaysThatItsOutputCannotBeWritten) {
  const Indexed folder(manyLines(), " -1-5");
  const auto fullDisk = [] {
    ::dup2(STDOUT_FILENO, STDERR_FILENO);
    ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO);
  };
  const char* const full = "Can't write the output: No space left on device\n";
  const std::pair<const char*, const char*> cases[] = {
      {"-n 1 idx.isi", full}, {"idx.isi", full}, {"--header idx.isi", full}, {"--help", ""}, {"--version", ""}};
  for (const auto& [arguments, output] : cases) {
    const ProgramResult result = runProgram(folder, arguments, fullDisk, TARNVALE_READ_PROGRAM);
    EXPECT_EQ(result.exitStatus, 2) << arguments;
    EXPECT_EQ(result.output, output) << arguments;
  }
}

TEST(Read, NeedsTheDataFileForRecordsOnlyAndSaysWhenItIsAnotherOne) {
  const Towns folder;
  folder.write("tmp/idx.isi", folder.read("idx.isi"));
  std::rename(folder.path("data.txt").c_str(), folder.path("tmp/data.txt").c_str());
  EXPECT_EQ(readWith(folder, "-n 1 idx.isi").exitStatus, 0);
  EXPECT_EQ(readWith(folder, "-r -n 1 idx.isi").output, "Can't open source file data.txt\n");
  EXPECT_EQ(readWith(folder, "-r -n 1 tmp/idx.isi").output, "Oslo\n") << "found beside the index";
  std::string withoutLength = folder.read("idx.isi");
  setNumberAt(withoutLength, 1024 + 10, 2, 0);
  folder.write("none.isi", withoutLength);
  folder.write("data.txt", "Porto\nOslo   \nRiga\n");
  for (const char* const arguments : {"-r idx.isi", "-r none.isi"}) {
    const ProgramResult other = readWith(folder, arguments);
    EXPECT_EQ(other.exitStatus, 2);
    EXPECT_EQ(other.output, "The data file does not have the records of its index: data.txt\n");
  }
}

TEST(Read, WaitsForACompactionInPlaceAndReadsWhatItHasWritten) {
  const Towns folder;
  runProgram(folder, "data.txt,one.isi,L6 -v,1-1");
  std::string compacted = folder.read("one.isi");
  compacted[32] = 1;
  std::optional<ProgramRun> run;
  {
    const HeldLock update(folder.path("data.txt"), writeUpdate);
    run.emplace(folder, "idx.isi", std::function<void()>(), TARNVALE_READ_PROGRAM);
    ::usleep(100000);
    folder.write("idx.isi", compacted);
  }
  EXPECT_EQ(run->finish().output, asLines(readIndex(compacted).entries, false));
  const HeldLock access(folder.path("data.txt"), writeAccess);
  EXPECT_EQ(readWith(folder, "idx.isi").output, "The data file is in exclusive use: data.txt\n");
}

TEST(Read, NoticesACompactionThatNoLockKeptOff) {
  const Indexed folder(manyLines(), " -1-5");
  std::rename(folder.path("data.txt").c_str(), folder.path("away.txt").c_str());
  ProgramRun run(folder, "idx.isi", {}, TARNVALE_READ_PROGRAM);
  run.waitForOutput(65536);  // and it can write no more
  std::string changed = folder.read("idx.isi");
  changed[32] = 1;
  folder.write("idx.isi", changed);
  EXPECT_EQ(run.finish().exitStatus, 2);
}

TEST(Read, WritesWhatIsThereOrEndsWithStatus2WhenABitIsWrongOrBytesAreMissing) {
  std::string data;
  for (int i = 0; i < 20; ++i) data += std::string(36, 'k') + std::to_string(1000 + i * 7 % 10) + "\n";
  const Indexed folder(data, " -1-40");
  const std::string good = folder.read("idx.isi");
  ASSERT_EQ(good.size(), 2048U + 2 * 512);  // a root of two entries above two leaves
  std::size_t refused = 0;
  // Every byte of the header's numbers, of the first entry's in a node, and of what stands behind the entries.
  const auto isNumber = [](std::size_t at) { return at < 20 || (at >= 1024 && (at % 512 < 12 || at % 512 >= 500)); };
  for (std::size_t at = 0; at < good.size(); at += isNumber(at) ? 1U : at < 1024 ? 251U : 61U) {
    std::string bytes = good;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << at * 5 % 8));
    std::remove(folder.path("idx.isi").c_str());  // a file that is emptied and written would be synced
    folder.write("idx.isi", at > 1024 && at % 2 == 1 ? otherByteOrder(bytes) : bytes);
    const ProgramResult result = readWith(folder, "idx.isi");
    refused += result.exitStatus == 2 ? 1 : 0;
    if (result.exitStatus == 2) continue;
    const Entries entries = readIndex(bytes).entries;
    EXPECT_EQ(result.output, asLines(entries, true)) << at;
    const auto order = [](const IndexEntry& entry) { return std::tie(entry.key, entry.duplicateNumber); };
    EXPECT_TRUE(std::ranges::is_sorted(entries, {}, order)) << at;
    EXPECT_EQ(result.exitStatus, result.output.empty() ? 1 : 0) << at;
  }
  EXPECT_GT(refused, 40U);
  std::string misplaced = good;
  setNumberAt(misplaced, 2048 + 506, 2, 1);  // a leaf on the level of the root
  folder.write("idx.isi", misplaced);
  EXPECT_EQ(readWith(folder, "-k k idx.isi").exitStatus, 2);
  for (std::size_t size = 0; size < good.size(); size += 511) {
    folder.write("idx.isi", good.substr(0, size));
    EXPECT_EQ(readWith(folder, "idx.isi").exitStatus, 2) << size;
  }
}

}  // namespace
}  // namespace tarnvale
