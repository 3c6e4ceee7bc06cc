// One damage after the other, each of which must be found: with the data file, and, where the index alone tells,
// without.
#include <functional>

#include "check/check_run.h"
#include "support/index_file.h"

namespace tarnvale {
namespace {

constexpr std::size_t entrySize = 52;
constexpr std::size_t leaf = 7 * 512;
constexpr std::size_t inner = 16 * 512;
constexpr std::size_t root = 1024;
constexpr std::size_t list = 4 * 512;  // the second node, with the positions found first

using Change = std::function<void(std::string& index, std::string& data)>;

Change set(std::size_t offset, std::size_t width, std::uint32_t value) {
  return [=](auto& index, auto&) { setNumberAt(index, offset, width, value); };
}
Change put(std::size_t offset, const std::string& text) {
  return [=](auto& index, auto&) { index.replace(offset, text.size(), text); };
}
Change command(std::string text) {
  text.resize(528);
  return put(496, text);
}
Change resize(int change) {
  return [=](auto& index, auto&) { index.resize(index.size() + static_cast<std::size_t>(change)); };
}
Change inData(std::size_t offset, const std::string& text) {
  return [=](auto&, auto& data) { data.replace(offset, text.size(), text); };
}

constexpr const char* right = "index structure is right";

// What a check finds, or one without the data file where that is something else. Exit statuses follow from it.
const struct {
  const char* what;
  Change change;
  int differences;
  const char* text;  // among them
  const char* alone = nullptr;
} damages[] = {
    {"key byte", set(leaf + entrySize + 17, 1, '\\'), 1, "the key of the record is \"1005xxxx", "sorts before"},
    {"position", set(leaf, 4, 5), 2, "xxxx\", LFA 205, node 7: no record belongs", "its position 5 is used twice"},
    {"position behind", set(leaf, 4, 693), 2, "no record belongs", "position 693 lies behind the data"},
    {"position of the next entry", set(leaf, 4, 436), 3, "the record has no entry", "sorts before"},
    {"duplicate number", set(leaf + 8, 2, 3), 1, "the duplicate number is 3 instead of 0"},
    {"record length", set(leaf + 10, 2, 40), 1, "node 7: the record length is 40 instead of 41"},
    {"count too small", set(leaf + 500, 1, 8), 1, "node 7: it has 8 entries instead of 9"},
    {"count too large", set(leaf + 500, 1, 10), 1, "node 7: it has 10 entries instead of 9"},
    {"level", set(inner + 506, 2, 0), 1, "node 16: its level is 0 instead of 1"},
    {"level of the root", set(root + 506, 2, 1), 1, "node 2: its level is 1 instead of 2"},
    {"node referred to twice", set(inner + entrySize + 4, 4, 6), 1, "node 16: its child 2 of 10 is at 6 instead of 7"},
    {"child of a leaf", set(leaf + 4, 4, 16), 1, "node 7: its child 1 of 10 is at 16 instead of 0"},
    {"right child", set(inner + 508, 4, 9), 1, "node 16: its child 10 of 10 is at 9 instead of 15"},
    {"cut file", resize(-512), 48, "\nand 38 more differences\n", "but the file ends with node"},
    {"cut inside a node", resize(-5), 49, "ends inside a node"},
    {"something behind the tree", resize(512), 1, "are not used"},
    {"cut header", [](auto& index, auto&) { index.resize(2000); }, 1, "are not those of an index"},

    {"link of the list", set(1536 + 504, 4, 7), 1, "list is broken: at 7 there is not its node number 2"},
    {"signature of the list", set(list + 511, 1, 0), 1, "list is broken: at 4"},
    {"position of an entry in the list", set(list, 4, 0), 2, "list has position 0, where no",
     "its position 0 is used twice"},
    {"position twice in the list", set(list + 4, 4, 1), 2, "list has position 1, where no",
     "list has position 1 behind position 1"},
    {"position in the list behind the data", set(list + 4, 4, 692), 2, "list has position 692,",
     "list has position 692 of 692"},
    {"count of the list", set(1536 + 508, 2, 47), 1, "list has 299 positions, the header counts 346"},
    {"list taken away", set(16, 4, 0xFFFFFFFF), 1, "list has 0 positions, the header counts 346"},

    {"version", put(4, "\x05\xFA"), 1, "header, version: the bytes 05 FA instead of 03 FC or FC 03"},
    {"key length", set(10, 2, 39), 1, "header, key length: 39 instead of 40"},
    {"data extent", set(12, 4, 1), 1, "header, data extent: 1 instead of 692", "extent: 1, but there are 692"},
    {"one place more", set(12, 4, 693), 1, "header, data extent: 693 instead of 692", right},
    {"places beyond number", set(12, 4, 0xFFFFFFF0), 1, "extent: 4294967280 instead of 692", right},
    {"reserved bytes", set(31, 1, 1), 1, "header, reserved bytes 24 to 31: not what a build writes"},
    {"record count", set(44, 4, 299), 1, "header, record count: 299 instead of 346", "299, but the index has 346 entr"},
    {"deleted records", set(48, 4, 1), 2, "deleted-record count: 1 instead of 346", "the header counts 1"},
    {"data name without end", put(240, std::string(256, 'x')), 2, "header, data file: not what a build writes"},

    {"data name", command("dato,idx,-1-40"), 1, "header, data file: \"data.TXT\", but the command is for \"dato\""},
    {"extension", command("data.DAT,idx,-1-40"), 1, "but the command is for \"data.DAT\""},
    {"directory", put(240, "d/data.TXT"), 1, "\"d/data.TXT\" with a directory, which option z leaves out"},
    {"record length", command("data,idx,L39,-1-40"), 366, "the deleted record is not in the list",
     "header, record length: 40 instead of 39"},
    {"ranges", command("data,idx,-1-39,40"), 1, "header, key segments"},
    {"shorter key", command("data,idx,-1-39"), 2, "header, key length: 40 instead of 39"},
    {"condition", command("data,idx,-1-40,p1=1"), 2, "header, selection"},
    {"flag against equal keys", set(6, 1, 0x84), 1, "header, record flags", "same key, which the options rule out"},
    {"option against equal keys", command("data,idx,-n1-40"), 2, "not in the format", "header, record flags"},
    {"no list kept", command("data,idx,-w1-40"), 2, "there is a deleted-record list, but the options keep none"},
    {"no build", command("data,idx,-c"), 1, "the command stored in the index cannot be used (code -103)"},
    {"no command", command(""), 2, "the command stored in the index cannot be used (code -104)"},

    {"record deleted", inData(82, std::string(41, '\0')), 5, "LFA 82: the deleted record is not in the list", right},
    {"record added", [](auto&, auto& data) { data += data.substr(0, 41); }, 3,
     "header, record count: 346 instead of 347", right},
    {"TAB in a record", inData(121, "\t"), 3, "not in the format", right},
};

// 346 records, each of 173 keys of 40 bytes twice, and a deleted record behind each: 9 entries to a node. The list has
// the nodes 3, 4 and 5, node 16 stands above the leaves 6 to 15, and the root on level 2 has node 44 on its right.
class DamagedIndex : public testing::Test {
 protected:
  DamagedIndex() {
    for (int i = 0; i < 346; ++i) {
      std::string record = std::to_string(1000 + i * 77 % 173);
      record.resize(40, 'x');
      data += record + "\n" + std::string(41, '\0');
    }
    folder.write("data.TXT", data);
    EXPECT_EQ(run(folder, "$T data,idx -z,1-40").exitStatus, 0);
    index = folder.read("idx.ISI");
    expectSound(folder, "idx.ISI", "as built");
  }

  TestFolder folder;
  std::string data;
  std::string index;
};

TEST_F(DamagedIndex, OrAnotherDataFileIsFoundOut) {
  for (const auto& damage : damages) {
    SCOPED_TRACE(damage.what);
    std::string changedIndex = index;
    std::string changedData = data;
    damage.change(changedIndex, changedData);
    rewrite(folder, "idx.ISI", changedIndex);
    rewrite(folder, "data.TXT", changedData);
    const ProgramResult whole = run(folder, "$C idx");
    EXPECT_EQ(whole.exitStatus, 1);
    EXPECT_TRUE(whole.says(damage.text)) << whole.output;
    EXPECT_TRUE(whole.says("index is wrong: " + std::to_string(damage.differences) + " diff")) << whole.output;
    const ProgramResult alone = run(folder, "$C -s idx");
    EXPECT_EQ(alone.exitStatus, damage.alone == right ? 0 : 1);
    EXPECT_TRUE(alone.says(damage.alone != nullptr ? damage.alone : damage.text)) << alone.output;
  }
}

TEST_F(DamagedIndex, WithoutItsCommandTellsHowFullItsNodesAre) {
  EXPECT_EQ(run(folder, "$T data,idx -m50,1-40").exitStatus, 0);
  index = folder.read("idx.ISI");
  command("")(index, data);
  folder.write("idx.ISI", index);
  EXPECT_FALSE(run(folder, "$C -s idx").says("entries instead of"));
}

TEST_F(DamagedIndex, IsFoundOutByAlmostEveryBitOfItsHeader) {
  // What the index alone does not tell: which mark of one byte; the extent, the standard extension then, the own name;
  // and the change counter.
  const auto isHarmless = [](std::size_t offset, int bit) {
    return (offset == 6 && bit == 7) || (offset >= 12 && offset < 16) || (offset >= 32 && offset < 36) ||
           offset == 245 || (offset >= 501 && offset < 504);
  };
  for (std::size_t offset = 0; offset < 1024; offset += offset < 64 ? 1 : offset < 128 ? 3 : 23) {
    for (int bit = 0; bit < (offset == 6 || offset == 7 ? 8 : 1); ++bit) {  // of the flags all
      std::string bytes = index;
      bytes[offset] = static_cast<char>(bytes[offset] ^ 1 << bit);
      rewrite(folder, "idx.ISI", bytes);
      const ProgramResult quiet = runProgram(folder, "-qs idx", {}, TARNVALE_CHECK_PROGRAM);
      EXPECT_EQ(quiet.exitStatus, isHarmless(offset, bit) ? 0 : 1) << "byte " << offset << ", bit " << bit;
      EXPECT_EQ(quiet.output, "");
    }
  }
}

}  // namespace
}  // namespace tarnvale
