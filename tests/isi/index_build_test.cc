#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/index_file.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(IndexBuild, DescribesItselfInTheHeader) {
  TestBuild run;
  const std::string options = "n0,u,o=1,p17=6,p11=A,1-10,15-12";
  const std::string records = "0123456789A....56789\r\n1123456789A....56789\r\n0123456789B....56789\r\n";
  ASSERT_EQ(run.build(std::string(22, '\0') + records, options), status::success);
  const std::string bytes = run.index();
  const std::size_t fields[][3] = {
      // offset, width, value
      {6, 1, 0x65},        {7, 1, 0x09},         {8, 2, 20},      {10, 2, 14},         {12, 4, 4}, {20, 4, 2},
      {24, 4, 0xFFFFFFFF}, {28, 4, 0},           {32, 4, 0},      {36, 4, 0},          {40, 4, 0}, {44, 4, 3},
      {48, 4, 1},          {64, 2, 11},          {66, 2, 0x4120}, {68, 4, 0x36200011}, {72, 4, 0}, {103, 1, 0},
      {112, 4, 10 << 16},  {116, 4, 0xFFFE000E}, {120, 4, 0}};
  for (const auto& [offset, width, value] : fields) EXPECT_EQ(numberAt(bytes, offset, width), value) << offset;
  EXPECT_STREQ(&bytes[240], run.folder.path("data.txt").c_str());
  EXPECT_EQ(&bytes[496], run.folder.path("data.txt,out.isi,,") + run.folder.path("tmp -") + options);
  TestBuild byOffset;
  ASSERT_EQ(byOffset.build("abc\ncd\n", "s,o,p=1='a',1"), status::success);
  const std::size_t others[][3] = {{6, 2, 0x10AA}, {8, 2, 256}, {12, 4, 7}, {103, 1, 0xFF}};  // which is an expression
  for (const auto& [offset, width, value] : others) EXPECT_EQ(numberAt(byOffset.index(), offset, width), value);
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

TEST(DuplicateList, ShowsThePlaceInSixteenColumns) {
  TestMessages messages;
  DuplicateList list;
  TrackedFile file;
  Settings settings;
  settings.errorFileWanted = settings.noDuplicates = true;
  std::string expected;
  for (const unsigned long long lfa :
       {0x0ULL, 0xFULL, 0x9ABCDEFULL, 0xFFFFFFFFULL, 0x100000000ULL, 0xFEDCBA9876543210ULL}) {
    std::uint8_t entry[] = "10 bytes..key";
    setEntryHead(entry, lfa, 1);
    reportDuplicate(list, file, messages, settings, entry, 3);
    char line[64];
    std::snprintf(line, sizeof line, "Duplicate Key at:%16llX Key:key \n", lfa);
    expected += line;
  }
  EXPECT_EQ(messages.text(), expected);
}

TEST(IndexBuild, StopsBeforeItsNodePointersOverflow) {
  const std::tuple<bool, std::uint32_t, bool> cases[] = {
      {true, 0xFFFFFFFD, true}, {true, 0xFFFFFFFE, false}, {false, 0xFFFFFC00, true}, {false, 0xFFFFFE00, false}};
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

TEST(IndexBuild, NumbersReportsOrDropsDuplicateKeys) {
  // Options, each key with its duplicate number, reports in the error file, and whether the user sees them too.
  const std::tuple<const char*, const char*, std::string, bool> cases[] = {
      {"n,d,1", "A0A1A2B0B1", "Duplicate Key at:", false},
      {"e,1", "A0A1A2B0B1", "Duplicate Key at:", false},
      {"n,1", "A0A1A2B0B1", "Duplicate Key at:", true},
      {"n0,1", "A0B0", "Duplicate Key ignored at:", true},
      {"n$,1", "A0B0", "", false}};
  for (const auto& [options, keys, report, toUser] : cases) {
    TestBuild run;
    ASSERT_EQ(run.build("A\nB\nA\nA\nB\n", options), status::success);
    std::string found;
    for (const IndexEntry& entry : readIndex(run.index()).entries) {
      found += entry.key + std::to_string(entry.duplicateNumber);
    }
    EXPECT_EQ(found, keys) << options;
    std::string errors;
    for (const char* const duplicate : {"               4 Key:A", "               6 Key:A", "               8 Key:B"}) {
      if (!report.empty()) errors += report + duplicate + " \r\n";
    }
    EXPECT_EQ(run.folder.read("out.ERR"), errors) << options;
    EXPECT_EQ(run.messages.text().find("4 Key:A \n") != std::string::npos, toUser) << options;
  }
}

TEST(IndexBuild, EndsAtSixteenLevels) {
  const std::tuple<int, const char*, StatusCode, const char*> cases[] = {
      {65535, "v,m50,1-150", 0, "is more than 95 percent of 65535 records allowed"},
      {65536, "v,m50,1-150", -13, "\nError! Tree level limit (16) can only support 65535 records for this ISI file! "},
      {1, "v,m00,1-150", -13, "\nError! Tree level limit (16) can only support 0 records for this ISI file! "}};
  for (const auto& [records, options, status, message] : cases) {
    std::string data;
    for (int i = 0; i < records; ++i) data += std::to_string(100000 + i) + "\n";
    TestBuild run;
    EXPECT_EQ(run.build(data, options), status);
    EXPECT_NE((run.messages.text() + run.messages.buffer.c_str()).find(message), std::string::npos);
    EXPECT_TRUE(status != 0 || readIndex(run.index(), 1).faults.empty());
  }
}

}  // namespace
}  // namespace tarnvale
