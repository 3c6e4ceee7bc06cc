#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/index_file.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(IndexBuild, FillsTheTreeFromItsLeavesUp) {
  const struct {
    std::vector<std::size_t> entries;
    const char* options;
    std::uint32_t fillLimit;
  } cases[] = {{{0, 1, 20, 21, 22, 440, 441, 442, 462, 463, 9261}, "1-10", 20},
               {{0, 5000}, "v,1-10", 20},
               {{10, 11, 120, 121}, "m50,1-10", 10}};
  for (const auto& c : cases) {
    for (const std::size_t count : c.entries) {
      std::string data;
      std::vector<DataRecord> records;
      for (std::size_t i = 0; i < count; ++i) {
        records.push_back({data.size(), 11, std::to_string(2000000000 - i)});
        data += records.back().key + "\n";
      }
      TestBuild run;
      ASSERT_EQ(run.build(data, c.options, "l10"), status::success);
      const IndexFile index = readIndex(run.index(), c.fillLimit);
      EXPECT_EQ(index.faults, "") << c.options << " " << count;
      EXPECT_TRUE(index.entries == expectedEntries(records, run.settings.recordNumberAddressing))
          << c.options << " " << count;
    }
  }
}

TEST(IndexBuild, DescribesItselfInTheHeader) {
  TestBuild run;
  const std::string options = "n0,u,o=1,p17=6,p11=A,1-10,15-12";
  const std::string records = "0123456789A....56789\r\n1123456789A....56789\r\n0123456789B....56789\r\n";
  ASSERT_EQ(run.build(std::string(22, '\0') + records, options), status::success);
  const std::string bytes = run.index();
  const std::size_t fields[][3] = {
      // offset, width, value
      {0, 4, 0x49534953}, {4, 2, 0xFC03},      {6, 1, 0x65},    {7, 1, 0x09},        {8, 2, 20},
      {10, 2, 14},        {12, 4, 4},          {16, 4, 3},      {20, 4, 2},          {28, 4, 0},
      {32, 4, 0},         {24, 4, 0xFFFFFFFF}, {36, 4, 0},      {40, 4, 0},          {44, 4, 3},
      {48, 4, 1},         {64, 2, 11},         {66, 2, 0x4120}, {68, 4, 0x36200011}, {72, 4, 0},
      {103, 1, 0},        {112, 4, 10 << 16},  {120, 4, 0},     {1536, 4, 0},        {116, 4, 0xFFFE000E}};
  for (const auto& [offset, width, value] : fields) EXPECT_EQ(numberAt(bytes, offset, width), value) << offset;
  EXPECT_STREQ(&bytes[240], run.folder.path("data.txt").c_str());
  EXPECT_EQ(&bytes[496], run.folder.path("data.txt,out.isi,,") + run.folder.path("tmp -") + options);
  TestBuild bare;
  ASSERT_EQ(bare.build("k\n", "z,1"), status::success);
  EXPECT_STREQ(&bare.index()[240], "data.txt");
}

TEST(IndexBuild, AddressesRecordsBeyondFourGigabytesByNumber) {
  constexpr std::uint64_t start = (std::uint64_t{1} << 32) - 64;
  TestBuild run;
  const std::string data = run.folder.write("data.txt", "");
  std::filesystem::resize_file(data, start);  // the scan begins behind these bytes
  std::ofstream(data, std::ios::app) << std::string(64, 'b') + std::string(64, 'a') + std::string(64, '\0') + "a";
  std::filesystem::resize_file(data, start + 4 * 64);
  ASSERT_EQ(run.openExisting("f=64,1-2"), status::success);
  run.scanner.currentLfa = run.scanner.blocks.position = start;
  ASSERT_EQ(fillInputBuffer(run.scanner.blocks, run.messages), BlockResult::loaded);
  ASSERT_EQ(run.buildOpened(), status::success);
  const std::string bytes = run.index();
  const IndexFile index = readIndex(bytes);
  constexpr std::uint32_t number = start / 64;
  const std::vector<IndexEntry> expected = {
      {number + 3, 0, 64, "a\0"s}, {number + 1, 0, 64, "aa"}, {number, 0, 64, "bb"}};
  EXPECT_TRUE(index.faults.empty() && index.entries == expected);
  EXPECT_EQ(index.deleted, std::vector<std::uint32_t>{number + 2});
  EXPECT_EQ(numberAt(bytes, 12, 4), number + 4) << "the extent of the data file";
}

TEST(IndexBuild, StopsBeforeItsNodePointersOverflow) {
  const std::tuple<bool, std::uint32_t, bool> cases[] = {// by number, pointer of the last node, one more fits
                                                         {true, 3, true},           {true, 0xFFFFFFFD, true},
                                                         {true, 0xFFFFFFFE, false}, {false, 1536, true},
                                                         {false, 0xFFFFFC00, true}, {false, 0xFFFFFE00, false}};
  for (const auto& [byNumber, last, fits] : cases) {
    TestMessages messages;
    IndexOutput output;
    output.recordNumbers = byNumber;
    output.lastNodePointer = last;
    EXPECT_EQ(advanceNodePointer(output, messages), fits);
    EXPECT_EQ(output.lastNodePointer - last, !fits ? 0U : byNumber ? 1U : 512U);
    EXPECT_EQ(messages.text().empty(), fits);
  }
}

TEST(IndexBuild, KeepsTheFormatOfTheDataInTheHeader) {
  const struct {
    const char* data;
    const char* options;
    std::uint32_t flags;     // of the records, of the index above
    std::uint32_t lastTest;  // 0xFF marks an expression
    std::uint32_t length;
    std::uint32_t extent;
  } cases[] = {// by format
               {"ab\rcd\r", "1", 0x0100, 0, 2, 2},
               {"ab\n\rcd\n\r", "n,d,1", 0x01C0, 0, 2, 2},
               {"abcd", "f=2,1", 0x0190, 0, 2, 2},
               {"ab\r\ncd\r\n", "g=2,1", 0x0140, 0, 2, 2},
               {"abc\ncd\n", "v,1", 0xA2, 0, 256, 7},
               {"ab\ncd\n", "w,o,1", 0x11A0, 0, 2, 2},
               {"abc\ncd\n", "s,p=1='a',1", 0xAA, 0xFF, 256, 7}};
  for (const auto& c : cases) {
    TestBuild run;
    ASSERT_EQ(run.build(c.data, c.options), status::success);
    const std::string bytes = run.index();
    EXPECT_EQ(numberAt(bytes, 6, 2), c.flags) << c.options;
    EXPECT_EQ(numberAt(bytes, 8, 2), c.length) << c.options;
    EXPECT_EQ(numberAt(bytes, 12, 4), c.extent) << c.options;
    EXPECT_EQ(numberAt(bytes, 103, 1), c.lastTest) << c.options;
  }
}

TEST(IndexBuild, ListsDeletedRecordsNewestNodeFirst) {
  for (const std::uint32_t deleted : {0U, 1U, 126U, 127U, 252U, 253U}) {
    TestBuild run;
    ASSERT_EQ(run.build("a\n" + std::string(std::size_t{deleted} * 2, '\0') + "b\n", "1"), status::success);
    const std::string bytes = run.index();
    const IndexFile index = readIndex(bytes);
    EXPECT_EQ(index.faults, "") << deleted;
    std::vector<std::uint32_t> expected;
    for (std::uint32_t end = (deleted + 125) / 126 * 126; end > 0; end -= 126) {
      for (std::uint32_t i = end - 126; i < std::min(end, deleted); ++i) expected.push_back(i + 1);
    }
    EXPECT_EQ(index.deleted, expected);
    EXPECT_EQ(deleted == 0, bytes.substr(1536, 512) == std::string(512, '\0'));
  }
}

TEST(IndexBuild, NumbersReportsOrDropsDuplicateKeys) {
  const std::string at = "               ";
  const auto reports = [&](const std::string& text) {
    return text + at + "4 Key:A \r\n" + text + at + "6 Key:A \r\n" + text + at + "8 Key:B \r\n";
  };
  const struct {
    const char* options;
    const char* entries;  // key, duplicate number
    std::string errorFile;
    bool toUser;
  } cases[] = {{"n,d,1", "A0A1A2B0B1", reports("Duplicate Key at:"), false},
               {"e,1", "A0A1A2B0B1", reports("Duplicate Key at:"), false},
               {"n,1", "A0A1A2B0B1", reports("Duplicate Key at:"), true},
               {"n0,1", "A0B0", reports("Duplicate Key ignored at:"), true},
               {"n$,1", "A0B0", "", false}};
  for (const auto& c : cases) {
    TestBuild run;
    ASSERT_EQ(run.build("A\nB\nA\nA\nB\n", c.options), status::success);
    std::string entries;
    for (const IndexEntry& entry : readIndex(run.index()).entries) {
      entries += entry.key + std::to_string(entry.duplicateNumber);
    }
    EXPECT_EQ(entries, c.entries) << c.options;
    EXPECT_EQ(run.folder.read("out.ERR"), c.errorFile) << c.options;
    EXPECT_EQ(run.messages.text().find("4 Key:A \n") != std::string::npos, c.toUser) << c.options;
  }
}

TEST(IndexBuild, EndsAtSixteenLevels) {
  const struct {
    int records;
    const char* options;
    StatusCode status;
    const char* message;
  } cases[] = {
      {65535, "m50,1-150", 0, "is more than 95 percent of 65535 records allowed"},
      {65536, "m50,1-150", -13, "\nError! Tree level limit (16) can only support 65535 records for this ISI file! "},
      {1, "m00,1-150", -13, "\nError! Tree level limit (16) can only support 0 records for this ISI file! "}};
  for (const auto& c : cases) {
    TestBuild run;
    std::string data;
    for (int i = 0; i < c.records; ++i) data += std::to_string(100000 + i) + std::string(144, '.') + "\n";
    EXPECT_EQ(run.build(data, c.options), c.status);
    EXPECT_NE((run.messages.text() + run.messages.buffer.c_str()).find(c.message), std::string::npos);
    EXPECT_TRUE(c.status != 0 || readIndex(run.index(), 1).faults.empty());
  }
}

}  // namespace
}  // namespace tarnvale
