// The real check, on sound indexes and on damaged ones.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "support/data_sample.h"
#include "support/test_folder.h"

namespace tarnvale {
namespace {

struct Outcome {
  int exitStatus;
  std::string output;  // of both streams
};

// Runs shell commands in the folder; $T and $C are the two programs.
Outcome run(const TestFolder& folder, const std::string& commands) {
  const std::string script =
      "cd " + folder.path() +
      "; TMPDIR=$PWD/tmp; export TMPDIR; T=" TARNVALE_PROGRAM "; C=" TARNVALE_CHECK_PROGRAM "; exec 2>&1; " + commands;
  Outcome outcome{};
  std::FILE* const pipe = ::popen(script.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) outcome.output += static_cast<char>(c);
  const int state = ::pclose(pipe);
  outcome.exitStatus = WIFEXITED(state) ? WEXITSTATUS(state) : -1;
  return outcome;
}

void expectSound(const TestFolder& folder, const std::string& index, const std::string& what) {
  const std::string before = folder.names();
  const std::string bytes = folder.read(index);
  const Outcome whole = run(folder, "$C " + index);
  EXPECT_EQ(whole.exitStatus, 0) << what << "\n" << whole.output;
  EXPECT_TRUE(whole.output.starts_with("index is complete: ")) << what << "\n" << whole.output;
  const Outcome alone = run(folder, "$C -s " + index);
  EXPECT_EQ(alone.exitStatus, 0) << what << "\n" << alone.output;
  EXPECT_EQ(folder.names(), before) << what;
  EXPECT_EQ(folder.read(index), bytes) << what;
}

TEST(Check, AcceptsWhatIsBuiltCompactedAndRebuiltInEveryFormat) {
  std::mt19937 random(7);
  const char* const options[] = {"", "n0,", "n$,d,", "u,m50,", "w,o=1,", "p2=A,x,", "p=2='A'&3<'Z',z,", "e,y,b,m33,"};
  for (int turn = 0; turn < 20; ++turn) {  // five formats, four marks
    const TestFolder folder;
    const DataSample sample = makeSample(turn, 150000, random);
    folder.write("data.TXT", sample.bytes);
    const std::string command = "data,idx," + sample.recordLength + " -" + options[turn % 8] + sample.options;
    const Outcome built = run(folder, "$T -m524288 \"" + command + "\"");
    ASSERT_EQ(built.exitStatus, 0) << command << "\n" << built.output;
    expectSound(folder, "idx.ISI", command);
    run(folder, "$T idx -c; $T idx,new -c=1");
    expectSound(folder, "idx.ISI", command + " compacted");
    expectSound(folder, "new.ISI", command + " compacted into a new file");
    folder.write("idx.ISI", otherByteOrder(folder.read("idx.ISI")));
    expectSound(folder, "idx.ISI", command + " big-endian");
    run(folder, "$T idx -c");
    expectSound(folder, "idx.ISI", command + " big-endian, compacted");
    run(folder, "$T idx -r");
    expectSound(folder, "idx.ISI", command + " rebuilt");
  }
}

// 346 records, each of 173 keys of 40 bytes twice, and a deleted record behind each: 9 entries to a node. The list has
// the nodes 3, 4 and 5, node 16 stands above the leaves 6 to 15, and the root on level 2 has node 44 on its right.
class DamagedIndex : public testing::Test {
 protected:
  DamagedIndex() {
    for (int i = 0; i < 346; ++i) {
      std::string record = std::to_string(1000 + i * 77 % 173);
      record.resize(40, 'x');
      data_ += record + "\n" + std::string(41, '\0');
    }
    folder_.write("data.TXT", data_);
    EXPECT_EQ(run(folder_, "$T data,idx -1-40").exitStatus, 0);
    index_ = folder_.read("idx.ISI");
    expectSound(folder_, "idx.ISI", "as built");
  }

  // The check of the index after the change must find `differences`, and say `text` among them.
  void expectFound(const char* what, const std::function<void(std::string&)>& change, int differences,
                   const std::string& text, const std::string& option = "") {
    std::string bytes = index_;
    change(bytes);
    folder_.write("idx.ISI", bytes);
    const Outcome outcome = run(folder_, "$C " + option + "idx");
    EXPECT_EQ(outcome.exitStatus, 1) << what;
    EXPECT_NE(outcome.output.find(text), std::string::npos) << what << "\n" << outcome.output;
    const std::string count =
        "index is wrong: " + (differences == 0 ? "" : std::to_string(differences) + " difference");
    EXPECT_NE(outcome.output.find(count), std::string::npos) << what << "\n" << outcome.output;
    EXPECT_EQ(run(folder_, "$C -q " + option + "idx").output, "") << what;
  }

  void expectFoundInData(const char* what, const std::string& data, int differences, const std::string& text) {
    folder_.write("data.TXT", data);
    expectFound(
        what, [](std::string&) {}, differences, text);
  }

  TestFolder folder_;
  std::string data_;
  std::string index_;
};

auto set(std::size_t offset, std::size_t width, std::uint32_t value) {
  return [=](std::string& bytes) { setNumberAt(bytes, offset, width, value); };
}

// A change to the index, and what the check of it has to say.
struct Damage {
  const char* what;
  std::function<void(std::string&)> change;
  int differences;  // 0: so many as there are
  const char* text;
};
std::ostream& operator<<(std::ostream& stream, const Damage& damage) { return stream << damage.what; }

constexpr std::size_t entrySize = 52;
constexpr std::size_t leaf = 7 * 512;
constexpr std::size_t inner = 16 * 512;
constexpr std::size_t root = 1024;
constexpr std::size_t command = 496;  // data,idx -1-40

void makeTwice(std::string& b) { setNumberAt(b, inner + entrySize + 4, 4, numberAt(b, inner + 4, 4)); }
void swapEntries(std::string& b) {
  const std::string first = b.substr(leaf, entrySize);
  b.replace(leaf, entrySize, b, leaf + entrySize, entrySize).replace(leaf + entrySize, entrySize, first);
}
void loseEntry(std::string& b) { b.replace(leaf, 8 * entrySize, b, leaf + entrySize, 8 * entrySize)[leaf + 500] = 8; }
void addEntry(std::string& b) {
  const std::string entries = b.substr(leaf, 8 * entrySize);
  b.replace(leaf + entrySize, 8 * entrySize, entries);
}
auto resize(int by) {
  return [by](std::string& b) { b.resize(static_cast<std::size_t>(static_cast<int>(b.size()) + by)); };
}
auto put(std::size_t offset, const std::string& bytes) {
  return [=](std::string& b) { b.replace(offset, bytes.size(), bytes); };
}

const Damage damages[] = {
    {"key byte", set(leaf + 12 + 5, 1, 'y'), 1, ", node 7: the key of the record is \"1005xxxx"},
    {"position", set(leaf, 4, 5), 2, "key \"1005xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\", LFA 205, node 7: no"},
    {"duplicate number", set(leaf + 8, 2, 3), 1, "the duplicate number is 3 instead of 0"},
    {"record length", set(leaf + 10, 2, 40), 1, "node 7: the record length is 40 instead of 41"},
    {"two entries swapped", swapEntries, 2, "the record has no entry, or not in this place"},
    {"lost entry", loseEntry, 3, "node 7: it has 8 entries instead of 9"},
    {"added entry", addEntry, 2, "node 7: no record belongs to the entry, or not in this place"},
    {"count of a leaf", set(leaf + 500, 1, 10), 1, "node 7: it has 10 entries instead of 9"},
    {"level", set(inner + 506, 2, 0), 1, "node 16: its level is 0 instead of 1"},
    {"level of the root", set(root + 506, 2, 1), 1, "node 2: its level is 1 instead of 2"},
    {"node referred to twice", makeTwice, 1, "node 16: its child 2 of 10 is at 6 instead of 7"},
    {"child of a leaf", set(leaf + 4, 4, 16), 1, "node 7: its child 1 of 10 is at 16 instead of 0"},
    {"right child", set(inner + 508, 4, 9), 1, "node 16: its child 10 of 10 is at 9 instead of 15"},
    {"cut file", resize(-512), 48, "but the file ends with node"},
    {"cut inside a node", resize(-5), 49, "ends inside a node"},
    {"something behind the tree", resize(512), 1, "are not used"},
    {"cut header", [](std::string& b) { b.resize(2000); }, 1, "are not those of an index"},
    {"link of the list", set(1536 + 504, 4, 7), 1, "list is broken: at 7 there is not its node number 2"},
    {"signature in the list", set(4 * 512 + 511, 1, 0), 1, "list is broken: at 4"},
    {"position in the list", set(4 * 512, 4, 0), 2, "list has position 0, where no deleted record is"},
    {"count in the list", set(1536 + 508, 2, 47), 1, "list has 299 positions, the header counts 346"},
    {"list taken away", set(16, 4, 0xFFFFFFFF), 1, "list has 0 positions, the header counts 346"},
    {"record count", set(44, 4, 299), 1, "header, record count: 299 instead of 346"},
    {"key length", set(10, 2, 39), 3, "header, key length: 39 instead of 40"},
    {"key segment", set(112, 2, 1), 2, "header, key segments"},
    {"selection", set(64, 2, 1), 2, "header, selection"},
    {"data extent", set(12, 4, 1), 1, "header, data extent: 1 instead of 692"},
};

// What needs no data file to be seen.
const Damage ownDamages[] = {
    {"version of another kind", put(4, "\x02\xFD"), 1, "version: no build writes these bytes"},
    {"root pointer", set(20, 4, 3), 1, "root pointer"},
    {"key length", set(10, 2, 39), 0, "key length: not that of the key segments"},
    {"key segment beyond any record", set(112, 2, 65530), 0, "key segments: a column beyond any record"},
    {"extent before the last records", set(12, 4, 600), 0, "the position is behind the end of the data, 601"},
    {"space compression of fixed length", set(6, 1, 0x88), 0, "are not those of an index"},
    {"flags of no build", set(7, 1, 0x19), 0, "index flags: bits that no build sets"},
    {"reserved bytes", set(52, 1, 1), 1, "reserved bytes"},
    {"data file name without an end", put(240, std::string(256, 'n')), 0, "data file: the name has no end"},
    {"command without an end", put(command, std::string(528, ' ')), 0, "stored command line: the text has no end"},
    {"record length of an entry", set(leaf + 10, 2, 40), 1, "the record length is 40, that of the header 41"},
    {"position in the list twice", set(4 * 512 + 4, 4, 1), 0, "twice or not in its place"},
    {"position in the list behind the data", set(1536 + 46 * 4 - 4, 4, 99999), 0, "behind the end of the data"},
    {"data file of the command", put(command, "atad"), 1, "its data file is not that of the header"},
    {"option of the command", put(command + 9, "-u1-40"), 1, "its options are not those of the header"},
    {"column of the command", put(command + 10, "2"), 0, "its key columns are not those of the header"},
    {"command of nothing", put(command, std::string(20, '\0')), 1, "it does not build an index"},
};

class EachDamage : public DamagedIndex, public testing::WithParamInterface<Damage> {};
class EachOwnDamage : public DamagedIndex, public testing::WithParamInterface<Damage> {};

TEST_P(EachDamage, IsFoundOut) {
  const Damage& damage = GetParam();
  expectFound(damage.what, damage.change, damage.differences, damage.text);
}

TEST_P(EachOwnDamage, IsFoundOutWithoutTheDataFile) {
  const Damage& damage = GetParam();
  expectFound(damage.what, damage.change, damage.differences, damage.text, "-s ");
}

INSTANTIATE_TEST_SUITE_P(Table, EachDamage, testing::ValuesIn(damages));
INSTANTIATE_TEST_SUITE_P(Table, EachOwnDamage, testing::ValuesIn(ownDamages));

TEST_F(DamagedIndex, OrItsDataFile) {
  std::string data = data_;
  expectFoundInData("record changed in its key", data.replace(82, 4, "2000"), 3, "key \"2000x");
  data = data_;
  expectFoundInData("record deleted", data.replace(82, 41, 41, '\0'), 5,
                    "LFA 82: the deleted record is not in the list");
  expectFoundInData("record added", data_ + data_.substr(0, 41), 3, "header, record count: 346 instead of 347");
  data = data_;
  expectFoundInData("deleted record used", data.replace(41, 41, data_, 0, 41), 5, "where no deleted record is");
  data = data_;
  expectFoundInData("TAB in a record", data.replace(122 - 1, 1, "\t"), 3, "not in the format");
}

TEST_F(DamagedIndex, IsToldWithTenDifferences) {
  expectFound(
      "every duplicate number",
      [](std::string& b) {
        for (std::size_t i = 0; i < 9; ++i) setNumberAt(b, leaf + i * entrySize + 8, 2, 9);
        for (std::size_t i = 0; i < 9; ++i) setNumberAt(b, leaf + 512 + i * entrySize + 8, 2, 9);
      },
      18, "\nand 8 more differences\n");
}

TEST(Check, SaysWhatItIsAsked) {
  const TestFolder folder;
  folder.write("data.TXT", "b\x01\xE9\\\na  c\nb\x01\xE9\\\n");
  EXPECT_EQ(run(folder, "$T data,idx -1-4").exitStatus, 0);
  EXPECT_EQ(run(folder, "$C idx").output, "index is complete: 3 entries, 0 deleted records, 1 node on 1 level\n");
  EXPECT_EQ(run(folder, "$C idx >/dev/full").exitStatus, 2);
  EXPECT_EQ(run(folder, "cp idx.ISI copy.ISI; $C copy; rm copy.ISI").output,
            "index is complete: 3 entries, 0 deleted records, 1 node on 1 level\n"
            "note: it was built as idx; tarnvale -r would rebuild that file\n");
  EXPECT_EQ(run(folder, "$C -q idx").output, "");
  EXPECT_EQ(run(folder, "rm data.TXT; $C -s idx").exitStatus, 0);
  EXPECT_EQ(run(folder, "$C idx").output, "Can't open source file data.TXT\n");
  EXPECT_EQ(run(folder, "$C -q idx; echo $?").output, "2\n");
  EXPECT_EQ(run(folder, "$C nothing").output, "Can't open .isi file nothing.ISI\n");
  for (const char* const wrong : {"$C", "$C a b", "$C -x idx"}) EXPECT_EQ(run(folder, wrong).exitStatus, 2) << wrong;
  EXPECT_EQ(run(folder, "$C --version").output.substr(0, 23), "tarnvale-check  Version");
  EXPECT_EQ(run(folder, "$C -h").exitStatus, 0);
  EXPECT_EQ(folder.names(), "idx.ISI");
}

TEST(Check, FindsRelativeDataBesideTheIndex) {
  const TestFolder folder;
  folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "mkdir elsewhere; $T data,idx -1").exitStatus, 0);
  EXPECT_EQ(run(folder, "cd elsewhere; $C ../idx.ISI").exitStatus, 0);
}

// A lock of this process on the data file, as long as it lives.
class Lock {
 public:
  Lock(const std::string& path, short type, off_t offset, off_t length) : fd_(::open(path.c_str(), O_RDWR)) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_start = offset;
    lock.l_len = length;
    EXPECT_EQ(::fcntl(fd_, F_SETLK, &lock), 0);
  }
  ~Lock() { ::close(fd_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

TEST(Check, SharesTheDataFileWithApplicationsAlone) {
  constexpr off_t accessByte = 0x7FFFFFFFFFFFFFFF;
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1").exitStatus, 0);
  {
    const Lock application(data, F_RDLCK, accessByte, 1);
    EXPECT_EQ(run(folder, "$C idx").exitStatus, 0);
  }
  const Lock compaction(data, F_WRLCK, accessByte, 1);
  EXPECT_EQ(run(folder, "$C idx").output, "The data file is in exclusive use: data.TXT\n");
  EXPECT_EQ(run(folder, "$C -s idx").exitStatus, 2);
}

TEST(Check, LeavesNoWorkFilesWhenInterrupted) {
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1").exitStatus, 0);
  const Lock changing(data, F_WRLCK, 0x7FFFFFFFFFFFFFFD, 2);  // the check waits for its end
  const std::string filesThere = "while [ $(ls tmp | wc -l) -lt 2 ]; do sleep 0.01; done; ";
  EXPECT_EQ(run(folder, "$C idx & " + filesThere + "kill -INT $!; wait $!").exitStatus, 1);
  EXPECT_EQ(folder.names(), "data.TXT idx.ISI");
}

}  // namespace
}  // namespace tarnvale
