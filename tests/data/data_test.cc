#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "data/whole_scan.h"
#include "support/data_sample.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(EndOfRecord, IsThatOfTheLastRecordWhereverChunksEnd) {
  using enum EorConvention;
  // Content, convention, record length with the mark (0 when none is found), mark.
  const std::tuple<std::string, EorConvention, std::uint32_t, std::string> cases[] = {
      {"abc\nabcde\n", lf, 6, "\n"},      {"abc\rabc\r", cr, 4, "\r"},         {"abc\nab\r\n", crLf, 4, "\r\n"},
      {"ab\n\0\0\0abcd\n"s, lf, 5, "\n"}, {"ab\n\rabcd\n\r", lfCr, 6, "\n\r"}, {"abc\r\n\0\0\0"s, crLf, 5, "\r\n"},
      {"abc\nxy", lf, 4, "\n"},           {"abc\n\x1A", lf, 4, "\n"},          {"\n\n", lf, 1, "\n"},
      {"", systemDefault, 0, "\n"},       {"abcdef", systemDefault, 0, "\n"},  {"\r", systemDefault, 0, "\r"}};
  const TestFolder folder;
  for (const auto& [content, convention, recordLength, mark] : cases) {
    const int file = ::open(folder.write("data", content).c_str(), O_RDONLY);
    for (const std::size_t bufferSize : {2U, 3U, 4U, 7U, 64U}) {
      std::vector<std::uint8_t> buffer(bufferSize);
      EndOfRecordMark found;
      std::uint32_t length = 0;
      EXPECT_EQ(detectEndOfRecord(file, buffer, found, &length), convention) << content;
      EXPECT_EQ(length, recordLength) << content;
      const char bytes[] = {static_cast<char>(found.first), static_cast<char>(found.second)};
      EXPECT_EQ(std::string(bytes, found.length), mark);
      if (convention == systemDefault) continue;
      // Where the length is not wanted, only the last chunk counts.
      const bool seen = content.find_last_of("\r\n") + bufferSize > content.size();
      EXPECT_EQ(detectEndOfRecord(file, buffer, found, nullptr), seen ? convention : systemDefault) << content;
    }
    ::close(file);
  }
}

TEST(DataFile, MustLieBelowFourGigabytesWhereByteOffsetsAddressIt) {
  constexpr off_t limit = off_t{1} << 32;
  const std::tuple<off_t, const char*, StatusCode> cases[] = {{limit - 1, "v,1", 0},
                                                              {limit, "v,1", -138},
                                                              {limit + 1, "s,1", -138},
                                                              {limit, "f=64,1", 0},
                                                              {limit, "g=64,1", 0}};
  for (const auto& [size, options, status] : cases) {
    TestScan scan;
    ASSERT_EQ(::truncate(scan.folder.write("data.txt", "").c_str(), size), 0);  // nothing but its ends is read
    EXPECT_EQ(scan.openExisting(options), status) << size << options;
  }
}

// The options, and the same with an expression that every record meets, which lets the column walk make all the keys
// that else are copied range by range. An expression of their own rules that out; option u comes before all columns.
std::vector<std::string> bothWays(const std::string& options) {
  if (options.find("p=") != std::string::npos || options.find("p#") != std::string::npos) return {options};
  return {options, std::string(options).insert(options.starts_with("u,") ? 2 : 0, "p#30='~~~~'|31='~~~~',p30#~,")};
}

TEST(RecordScan, FindsEveryRecordOfEveryFormatAcrossBlocksAndTrains) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const DataSample sample = makeSample(round, 300000, random);
    for (const std::string& options : bothWays(sample.options)) {
      TestScan scan;
      ASSERT_EQ(scan.open(sample.bytes, options, sample.recordLength), status::success);
      const WholeScan found = scanToEnd(scan.scanner, 50, scan.messages);
      const ScanFindings& findings = scan.scanner.findings;
      EXPECT_TRUE(found.result == ScanResult::inputExhausted && found.trainsAreRight) << round << options;
      EXPECT_TRUE(found.records == sample.records) << round << options;
      EXPECT_EQ(found.deletedLfas, sample.deletedLfas) << round << options;
      EXPECT_EQ(findings.deletedCount, sample.deletedLfas.size());
      EXPECT_FALSE(findings.format.variableLength || findings.format.overlongRecord) << round << options;
      EXPECT_GE(scan.scanner.bytesRead() + 1, sample.bytes.size()) << "all but a closing Ctrl-Z";
    }
  }
}

// Records as position+length:key, deleted records, what was found irregular, or a failure.
std::string scanAndDescribe(TestScan& scan) {
  const WholeScan found = scanToEnd(scan.scanner, 50, scan.messages);
  std::string text;
  for (const auto& [lfa, length, key] : found.records) {
    text += std::to_string(lfa) + "+" + std::to_string(length) + ":" + key + " ";
  }
  for (const std::uint64_t lfa : found.deletedLfas) text += "deleted " + std::to_string(lfa) + " ";
  const FormatFindings& format = scan.scanner.findings.format;
  text += format.variableLength ? "variable " : "";
  text += format.invalidPosition ? "misplaced " : "";
  text += format.spaceCompression ? "tabs " : "";
  text += format.overlongRecord ? "long " : "";
  if (found.result == ScanResult::inputExhausted) return text;
  EXPECT_TRUE(found.result == ScanResult::recordTooLong || found.result == ScanResult::invalidEndOfRecord);
  return (found.result == ScanResult::recordTooLong ? "too long at " : "no mark at ") + std::to_string(found.failedAt);
}

TEST(RecordScan, KnowsTheRulesOfEachFormat) {
  const std::tuple<std::string, const char*, const char*, const char*> cases[] = {
      {"", "1", "l3", ""},
      {"abc\nde", "1-3", "l3", "0+4:abc 4+3:de  "},
      {"\n\na\n", "v,1", "", "0+1:  1+1:  2+2:a "},
      {"abcdef\n", "v,3-2,7,6-5,1-0", "", "0+7:cb fea "},
      {"aBz{5678\nxyz\n", "u,v,4-1", "", "0+9:{ZBA 9+4: ZYX "},
      {"a`zA@Z[{\xE1y\xFAx\x7Fwb\n", "u,v,1-15", "", "0+16:A`ZA@Z[{\xE1Y\xFAX\x7FWB "},
      {"ab\tc\n", "s,9,2-3", "", "0+5:cb  tabs "},
      {"ab\tc\n", "v,b,3-4", "", "0+5:\tc "},
      {"abc\na\tb\nd\n", "1,9", "l9", "0+4:a  4+4:ab 8+2:d  tabs "},
      {"abcd\n" + std::string(12, '\0') + "ABCD\n", "1", "",
       "0+5:a 17+5:A deleted 5 deleted 10 deleted 15 variable misplaced "},
      {"abc\n\0\0\0\0\0\0\0\0"s, "1", "", "0+4:a deleted 4 deleted 8 "},
      {"a\n\0\0b\n"s, "v,1", "", "0+2:a 4+2:b "},
      {"ab\n\x1Axxx", "v,1", "", "0+3:a "},
      {"a\x1A\nbc\x1A", "v,2", "", "0+3:\x1A 3+3:c "},
      {"\x1A"s + "a\0\0\0b"s, "f=2,2", "", "0+2:a 4+2:b deleted 2 "},
      {"ab\ncdxef\n", "g=2,1", "", "no mark at 3"},
      {"abcdabcdabcd", "f=4,p=6<'c',1", "", ""},          // a column that no record reaches
      {"ab\rc\n\rdd\r", "p=2<'\x05',1", "l2", "3+3:c "},  // an LF ends what is compared
      {"ab\r\ncd\n\r", "g=2,1", "", "no mark at 0"},
      {"abcde\nab\n", "s,1", "l4", "0+6:a 6+3:a "},
      {"abcdef\nab\n", "s,1", "l4", "0+7:a 7+3:a long "},
      {std::string(65533, 'x') + "\n", "v,1", "l9", "0+65534:x "},
      {std::string(65534, 'x') + "\n", "v,1", "l9", "too long at 0"},
      {std::string(300000, 'x') + "\n", "s,1", "l9", "too long at 0"},
      {"a\r\n" + std::string(65531, 'x') + "\r\n", "v,1", "l9", "0+3:a 3+65533:x "},
      {"a\r\n" + std::string(65532, 'x') + "\r\n", "v,1", "l9", "too long at 3"},
      {"a" + std::string(65000, 'x') + "z\n", "v,65002,1", "l9", "0+65003:za "},
      {std::string(40000, 'x') + "\r\n" + std::string(25533, 'y') + "\r\nz\r\n", "v,1", "l50000",
       "0+40002:x 40002+25535:y 65537+3:z "}};  // a mark cut by a block
  for (const auto& [data, formatAndKey, recordLength, found] : cases) {
    for (const std::string& options : bothWays(formatAndKey)) {
      TestScan scan;
      ASSERT_EQ(scan.open(data, options, recordLength), status::success) << scan.messages.buffer.view();
      EXPECT_EQ(scanAndDescribe(scan), found) << options;
    }
  }
}

TEST(RecordScan, IndexesOnlyTheRecordsThatItsConditionsSelect) {
  // An expression is evaluated at each column with a condition, with the terms up to there.
  const std::string data = "1AB..X\n2AC..Y\n3AB\tZ\n4ab..Z\n5it's\n6zz\n";
  using Selecting = std::pair<const char*, const char*>;  // options, and the records' first characters
  const Selecting cases[] = {{"p=2='AB     Z'", "3"},           {"p2=A,p3=B", "13"},   {"p2=A", "123"},
                             {"p=2<'AC'&6='X'", "1"},           {"p=2>='AC'", "2456"}, {"p2#A", "456"},
                             {"p=2L'AC'&6E'X'", "1"},           {"p=2GE'AC'", "2456"}, {"p2=A,p2=a", ""},
                             {"p=\" 2 le 'A'|6G'X'\"", "1234"}, {"p=2n'AB'", "2456"},  {"p2=A,p6=X", "1"},
                             {"p=2='AC'|6='X'", "12"},          {"p=2<>'AB'", "2456"}, {"p0=A", ""},
                             {"p=6='X' | 2='AB'&6='Q'", "1"},   {"p=2!='AB'", "2456"}, {"p2=\"A\"", "123"},
                             {"p=3='B'&2='A'", "13"},           {"p#2='AB'", "2456"},  {"p=2='AB'", "13"},
                             {"p=2='A'&3='B',p2=A", ""},        {"p=2e'it''s'", "5"},  {"p#2#'AB'", "13"},
                             {"p=2='A'|3='C',p2=A", "2"},       {"p=4='     Z'", "3"}, {"p=2<='AC'", "123"}};
  for (const auto& [condition, expected] : cases) {
    for (const std::string& options : bothWays(condition)) {
      TestScan scan;
      ASSERT_EQ(scan.open(data, "s," + options + ",1", "l20"), status::success) << options;
      const WholeScan found = scanToEnd(scan.scanner, 50, scan.messages);
      std::string selected;
      for (const DataRecord& record : found.records) selected += record.key;
      EXPECT_EQ(selected, expected) << options;
      EXPECT_EQ(found.recordCount, 6U);
    }
  }
}

// The string is as long as one may be. It begins behind a binary record, which does not end the comparison, and lies
// before, across or behind the end of a block; where it stands again its last byte differs.
TEST(RecordScan, ComparesBeyondTheEndOfABlock) {
  std::string string;
  for (int i = 0; i < 299; ++i) string += static_cast<char>('a' + i % 26);
  for (const std::size_t start : {65236U, 65238U, 65534U, 65536U, 65538U}) {
    for (const std::size_t again : {start - 400, start + 400}) {
      std::string data(67000, '.');
      data.replace(start, string.size(), string).replace(again, string.size() - 1, string, 0, string.size() - 1);
      TestScan scan;
      ASSERT_EQ(scan.open(data, "f=2,p=3='" + string + "',1"), status::success);
      const std::vector<DataRecord> expected = {{start - 2, 2, "."}};
      EXPECT_TRUE(scanToEnd(scan.scanner, 50, scan.messages).records == expected) << start;
    }
  }
}

}  // namespace
}  // namespace tarnvale
