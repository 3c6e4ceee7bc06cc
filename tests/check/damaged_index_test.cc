// One damage after the other, each of which must be found: with the data file, and, where the index alone tells,
// without.
#include <functional>

#include "check/check_run.h"
#include "support/index_file.h"

namespace tarnvale {
namespace {

using Change = std::function<void(std::string&)>;

Change set(std::size_t offset, std::size_t width, std::uint32_t value) {
  return [=](std::string& bytes) { setNumberAt(bytes, offset, width, value); };
}
Change put(std::size_t offset, const std::string& text) {
  return [=](std::string& bytes) { bytes.replace(offset, text.size(), text); };
}
Change command(std::string text) {
  text.resize(528);
  return put(496, text);
}

// What a check without the data file is to say.
enum class Alone { same, nothing };

struct Damage {
  const char* what;
  Change change;
  int differences;   // that the check with the data file finds
  std::string text;  // among them
  Alone alone = Alone::same;
  const char* textAlone = nullptr;  // instead of `text`
};

// 346 records, each of 173 keys of 40 bytes twice, and a deleted record behind each: 9 entries to a node. The list has
// the nodes 3, 4 and 5, node 16 stands above the leaves 6 to 15, and the root on level 2 has node 44 on its right.
class DamagedIndex : public testing::Test {
 protected:
  static constexpr std::size_t entrySize = 52;
  static constexpr std::size_t leaf = 7 * 512;
  static constexpr std::size_t inner = 16 * 512;
  static constexpr std::size_t root = 1024;
  static constexpr std::size_t list = 4 * 512;  // the second node, with the positions found first

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

  void expectFound(const Damage& damage) {
    SCOPED_TRACE(damage.what);
    std::string bytes = index_;
    damage.change(bytes);
    folder_.write("idx.ISI", bytes);
    const CheckOutcome whole = run(folder_, "$C idx");
    EXPECT_EQ(whole.exitStatus, 1);
    EXPECT_TRUE(whole.says(damage.text)) << whole.output;
    const std::string count = "index is wrong: " + std::to_string(damage.differences) + " difference";
    EXPECT_TRUE(whole.says(count)) << whole.output;
    EXPECT_EQ(run(folder_, "$C -q idx").output, "");

    const CheckOutcome alone = run(folder_, "$C -s idx");
    const bool found = damage.alone == Alone::same;
    EXPECT_EQ(alone.exitStatus, found ? 1 : 0) << alone.output;
    EXPECT_TRUE(alone.says(damage.textAlone != nullptr ? damage.textAlone
                           : found                     ? damage.text
                                                       : "is right"))
        << alone.output;
  }

  TestFolder folder_;
  std::string data_;
  std::string index_;
};

TEST_F(DamagedIndex, IsFoundOutByItsNodes) {
  const auto twice = [](std::string& b) { setNumberAt(b, inner + entrySize + 4, 4, numberAt(b, inner + 4, 4)); };
  const auto swapped = [](std::string& b) {
    const std::string first = b.substr(leaf, entrySize);
    b.replace(leaf, entrySize, b, leaf + entrySize, entrySize).replace(leaf + entrySize, entrySize, first);
  };
  const auto lost = [](std::string& b) {
    b.replace(leaf, 8 * entrySize, b, leaf + entrySize, 8 * entrySize)[leaf + 500] = 8;
  };
  const auto added = [](std::string& b) {
    const std::string entries = b.substr(leaf, 8 * entrySize);
    b.replace(leaf + entrySize, 8 * entrySize, entries);
  };
  const auto resize = [](int change) {
    return [change](std::string& b) { b.resize(b.size() + static_cast<std::size_t>(change)); };
  };
  const Damage rows[] = {
      {"key byte", set(leaf + 17, 1, 'y'), 1, ", node 7: the key of the record is \"1005xxxx", Alone::same,
       "sorts before"},
      {"position", set(leaf, 4, 5), 2, "key \"1005xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\", LFA 205, node 7: no",
       Alone::same, "its position 5 is used twice"},
      {"position behind", set(leaf, 4, 693), 2, "no record belongs", Alone::same, "position 693 lies behind the data"},
      {"duplicate number", set(leaf + 8, 2, 3), 1, "the duplicate number is 3 instead of 0"},
      {"record length", set(leaf + 10, 2, 40), 1, "node 7: the record length is 40 instead of 41"},
      {"two entries swapped", swapped, 2, "the record has no entry, or not in this place", Alone::same, "sorts before"},
      {"lost entry", lost, 3, "node 7: it has 8 entries instead of 9"},
      {"added entry", added, 2, "node 7: no record belongs to the entry", Alone::same, "sorts before"},
      {"count of a leaf", set(leaf + 500, 1, 10), 1, "node 7: it has 10 entries instead of 9"},
      {"level", set(inner + 506, 2, 0), 1, "node 16: its level is 0 instead of 1"},
      {"level of the root", set(root + 506, 2, 1), 1, "node 2: its level is 1 instead of 2"},
      {"node referred to twice", twice, 1, "node 16: its child 2 of 10 is at 6 instead of 7"},
      {"child of a leaf", set(leaf + 4, 4, 16), 1, "node 7: its child 1 of 10 is at 16 instead of 0"},
      {"right child", set(inner + 508, 4, 9), 1, "node 16: its child 10 of 10 is at 9 instead of 15"},
      {"cut file", resize(-512), 48, "but the file ends with node"},
      {"cut inside a node", resize(-5), 49, "ends inside a node"},
      {"something behind the tree", resize(512), 1, "are not used"},
      {"cut header", [](std::string& b) { b.resize(2000); }, 1, "are not those of an index"},
      {"every duplicate number",
       [](std::string& b) {
         for (std::size_t i = 0; i < 18; ++i) setNumberAt(b, leaf + i / 9 * 512 + i % 9 * entrySize + 8, 2, 9);
       },
       18, "\nand 8 more differences\n"},
  };
  for (const Damage& row : rows) expectFound(row);
}

TEST_F(DamagedIndex, IsFoundOutByItsList) {
  const Damage rows[] = {
      {"link", set(1536 + 504, 4, 7), 1, "list is broken: at 7 there is not its node number 2"},
      {"signature", set(list + 511, 1, 0), 1, "list is broken: at 4"},
      {"position of an entry", set(list, 4, 0), 2, "list has position 0, where no deleted record is", Alone::same,
       "its position 0 is used twice"},
      {"repeated position", set(list + 4, 4, 1), 2, "list has position 1, where no deleted record is", Alone::same,
       "list has position 1 behind position 1"},
      {"position behind the data", set(list + 4, 4, 692), 2, "list has position 692,", Alone::same,
       "list has position 692 of 692"},
      {"count", set(1536 + 508, 2, 47), 1, "list has 299 positions, the header counts 346"},
      {"list taken away", set(16, 4, 0xFFFFFFFF), 1, "list has 0 positions, the header counts 346"},
  };
  for (const Damage& row : rows) expectFound(row);
}

TEST_F(DamagedIndex, IsFoundOutByItsHeader) {
  const Damage rows[] = {
      {"version", put(4, "\x05\xFA"), 1, "header, version: the bytes 05 FA instead of 03 FC or FC 03"},
      {"version of no order", put(4, "\x03\x03"), 1, "are not those of an index"},
      {"addressing", set(7, 1, 0), 1, "are not those of an index"},
      {"OS types", set(7, 1, 0x19), 1, "header, index flags: 25 instead of 1"},
      {"key length", set(10, 2, 39), 1, "header, key length: 39 instead of 40"},
      {"data extent", set(12, 4, 1), 1, "header, data extent: 1 instead of 692", Alone::same,
       "extent: 1, but there are 692"},
      {"one place more", set(12, 4, 693), 1, "header, data extent: 693 instead of 692", Alone::nothing},
      {"root pointer", set(20, 4, 3), 1, "header, root pointer: 3 instead of 2"},
      {"reserved", set(24, 4, 0), 1, "header, reserved bytes 24 to 31: not what a build writes"},
      {"reserved", set(31, 1, 1), 1, "header, reserved bytes 24 to 31"},
      {"reserved", set(36, 1, 1), 1, "header, reserved bytes 36 to 43"},
      {"record count", set(44, 4, 299), 1, "header, record count: 299 instead of 346", Alone::same,
       "299, but the index has 346 entries"},
      {"deleted records", set(48, 4, 1), 2, "deleted-record count: 1 instead of 346", Alone::same,
       "the header counts 1"},
      {"reserved", set(63, 1, 1), 1, "header, reserved bytes 52 to 63"},
      {"selection", set(64, 2, 1), 1, "header, selection"},
      {"reserved", set(104, 1, 1), 1, "header, reserved bytes 104 to 111"},
      {"range", set(112, 2, 1), 1, "header, key segments"},
      {"range behind every record", set(112, 2, 65535), 1, "header, key segments"},
      {"range too many", set(118, 2, 2), 1, "header, key segments"},
      {"data name without end", put(240, std::string(256, 'x')), 2, "header, data file: not what a build writes"},
      {"command without end", put(496, "data,idx,-1-40" + std::string(514, ' ')), 1, "header, command: not what"},
      {"behind the command", set(1023, 1, 1), 1, "header, command: not what a build writes"},
  };
  for (const Damage& row : rows) expectFound(row);
}

TEST_F(DamagedIndex, IsFoundOutByItsCommand) {
  folder_.write("other.TXT", data_);
  const Damage rows[] = {
      {"data name", command("dato,idx,-1-40"), 1, "header, data file: \"data.TXT\", but the command is for \"dato\""},
      {"another data file", command("other,idx,-1-40"), 1,
       "header, data file: \"data.TXT\", but the command is for \"other\""},
      {"data name in the header", put(240, "other.TXT"), 1,
       "header, data file: \"other.TXT\", but the command is for \"data\""},
      {"extension", command("data.DAT,idx,-1-40"), 1, "but the command is for \"data.DAT\""},
      {"directory",
       [](std::string& b) {
         put(240, "d/data.TXT")(b);
         command("data,idx,-z1-40")(b);
       },
       1, "\"d/data.TXT\" with a directory, which option z leaves out"},
      {"record length", command("data,idx,L39,-1-40"), 366, "the deleted record is not in the list", Alone::same,
       "header, record length: 40 instead of 39"},
      {"ranges", command("data,idx,-1-39,40"), 1, "header, key segments"},
      {"key length", command("data,idx,-1-39"), 2, "header, key length: 40 instead of 39"},
      {"condition", command("data,idx,-1-40,p1=1"), 2, "header, selection"},
      {"no list kept", command("data,idx,-w1-40"), 2, "there is a deleted-record list, but the options keep none"},
      {"no build", command("data,idx,-c"), 1, "the command stored in the index cannot be used (code -103)"},
      {"overlap", command("data,idx,-1-40,3"), 1, "the command stored in the index cannot be used (code -113)"},
      {"none", command(""), 2, "the command stored in the index cannot be used (code -104)"},
  };
  for (const Damage& row : rows) expectFound(row);
}

TEST_F(DamagedIndex, IsFoundOutByAlmostEveryBitOfItsHeader) {
  // What the index alone does not tell: the extent, the standard extension then, the own name; and the change counter.
  const auto isHarmless = [](std::size_t offset) {
    return (offset >= 12 && offset < 16) || (offset >= 32 && offset < 36) || offset == 245 ||
           (offset >= 501 && offset < 504);
  };
  for (std::size_t offset = 0; offset < 1024; offset += offset < 128 || (offset >= 480 && offset < 512) ? 1 : 13) {
    std::string bytes = index_;
    bytes[offset] ^= 1;
    folder_.write("idx.ISI", bytes);
    EXPECT_EQ(run(folder_, "$C -qs idx").exitStatus, isHarmless(offset) ? 0 : 1) << "byte " << offset;
  }
}

TEST_F(DamagedIndex, OrItsDataFile) {
  const auto in = [&](const char* what, const std::string& data, int differences, const std::string& text) {
    folder_.write("data.TXT", data);
    expectFound({what, [](std::string&) {}, differences, text, Alone::nothing});
  };
  std::string data = data_;
  in("record changed in its key", data.replace(82, 4, "2000"), 3, "key \"2000x");
  data = data_;
  in("record deleted", data.replace(82, 41, 41, '\0'), 5, "LFA 82: the deleted record is not in the list");
  in("record added", data_ + data_.substr(0, 41), 3, "header, record count: 346 instead of 347");
  data = data_;
  in("deleted record used", data.replace(41, 41, data_, 0, 41), 5, "where no deleted record is");
  data = data_;
  in("TAB in a record", data.replace(122 - 1, 1, "\t"), 3, "not in the format");
}

// Flags that no build writes together, each in a copy of an index with these options.
TEST(DamagedFlags, AreFoundOut) {
  const struct {
    const char* options;
    std::size_t offset;
    std::uint8_t value;
  } cases[] = {
      {"v,", 6, 0x82},     // variable without 0x20
      {"s,", 6, 0xA8},     // space compression of fixed records
      {"v,", 6, 0xAA},     // space compression that the options do not have
      {"v,", 6, 0xB2},     // variable and binary
      {"v,", 7, 0x01},     // record numbers of variable records
      {"f=4,", 6, 0x50},   // a mark of two bytes of binary records without any
      {"w,", 6, 0x80},     // deleted records kept in spite of w
      {"p1=b,", 6, 0x80},  // and of a condition
      {"", 6, 0xA0},       // not kept in spite of none
      {"", 6, 0x84},       // equal keys not allowed
      {"u,", 6, 0x80},     // upper case left out
      {"o=1,", 7, 0x11},   // another OS type
  };
  for (const auto& c : cases) {
    const TestFolder folder;
    folder.write("data.TXT", "bcd\nabc\n");
    EXPECT_EQ(run(folder, std::string("$T data,idx,L") + (*c.options == 'f' ? "4" : "3") + " -" + c.options + "1-2")
                  .exitStatus,
              0);
    EXPECT_EQ(run(folder, "$C -s idx").exitStatus, 0) << c.options;
    std::string bytes = folder.read("idx.ISI");
    bytes[c.offset] = static_cast<char>(c.value);
    folder.write("idx.ISI", bytes);
    EXPECT_EQ(run(folder, "$C -s idx").exitStatus, 1) << c.options << int{c.value};
    EXPECT_EQ(run(folder, "$C idx").exitStatus, 1) << c.options << int{c.value};
  }
}

TEST(DamagedOrder, OfEqualKeysWhereTheOptionsAllowNone) {
  const TestFolder folder;
  folder.write("data.TXT", "b\na\nb\n");
  EXPECT_EQ(run(folder, "$T data,idx -d,1").exitStatus, 0);
  std::string bytes = folder.read("idx.ISI");
  bytes.replace(496, 13, "data,idx,-n,1");
  bytes[6] |= 0x04;
  folder.write("idx.ISI", bytes);
  EXPECT_TRUE(run(folder, "$C -s idx").says("the entry before has the same key, which the options rule out"));
  EXPECT_TRUE(run(folder, "$C idx").says("not in the format"));
}

}  // namespace
}  // namespace tarnvale
