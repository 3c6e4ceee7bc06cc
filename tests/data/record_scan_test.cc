#include "data/record_scan.h"

#include <gtest/gtest.h>

#include "cmdline/key_specification.h"
#include "cmdline/option_section.h"
#include "support/data_sample.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

struct Found {
  std::vector<DataRecord> records;
  std::vector<std::uint64_t> deletedLfas;
  ScanResult result = ScanResult::trainFull;
};

// Scans to the end, in trains of 50 entries.
Found scanAll(TestScan& scan) {
  const std::uint32_t keyLength = scan.settings.keys.keyLength;
  const std::uint32_t entrySize = keyLength + sortEntryHeadSize;
  std::vector<std::uint8_t> memory(51 * std::size_t{entrySize});
  const EntryArea area{memory.data(), 50, entrySize};
  Found found;
  while (found.result == ScanResult::trainFull) {
    const ScannedTrain train = createSubList(scan.scanner, area, scan.messages, [&](std::uint64_t lfa) {
      found.deletedLfas.push_back(lfa);
      return true;
    });
    found.result = train.result;
    const std::uint8_t* entry = area.first;
    for (std::uint32_t i = 0; i < train.entries; ++i, entry += entrySize) {
      const std::string key(reinterpret_cast<const char*>(entryKey(entry)), keyLength);
      found.records.push_back({entryLfa(entry), entryRecordLength(entry), key});
    }
    EXPECT_TRUE(isEndMarker(entry));
    EXPECT_TRUE(train.result != ScanResult::trainFull || train.entries == area.room) << "a train ended early";
  }
  return found;
}

TEST(RecordScan, FindsEveryRecordOfEveryFormatAcrossBlocksAndTrains) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const DataSample sample = makeSample(round, 300000, random);
    TestScan scan;
    ASSERT_EQ(scan.open(sample.bytes, sample.options, sample.recordLength), status::success);
    const Found found = scanAll(scan);
    const ScanFindings& findings = scan.scanner.findings;
    EXPECT_EQ(found.result, ScanResult::inputExhausted) << round;
    EXPECT_TRUE(found.records == sample.records) << round;
    EXPECT_EQ(found.deletedLfas, sample.deletedLfas) << round;
    EXPECT_EQ(findings.deletedCount, sample.deletedLfas.size());
    EXPECT_FALSE(findings.format.variableLength || findings.format.overlongRecord) << round;
    EXPECT_GE(scan.scanner.bytesRead() + 1, sample.bytes.size()) << "all but a closing Ctrl-Z";
  }
}

// Records as position+length:key, deleted records, what was found irregular, or a failure.
std::string scanAndDescribe(TestScan& scan) {
  const Found found = scanAll(scan);
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
  const std::string what = found.result == ScanResult::recordTooLong        ? "too long"
                           : found.result == ScanResult::invalidEndOfRecord ? "no mark"
                                                                            : "not read";
  return what + " at " + std::to_string(scan.scanner.currentLfa);
}

TEST(RecordScan, KnowsTheRulesOfEachFormat) {
  const struct {
    std::string data;
    const char* options;
    const char* recordLength;
    const char* found;
  } cases[] = {{"", "1", "l3", ""},
               {"abc\nde", "1-3", "l3", "0+4:abc 4+3:de  "},
               {"\n\na\n", "v,1", "", "0+1:  1+1:  2+2:a "},
               {"abcdef\n", "v,3-2,7,6-5,1-0", "", "0+7:cb fea "},
               {"aBz{\nxyz\n", "v,u,4-1", "", "0+5:{ZBA 5+4: ZYX "},
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
               {std::string(40000, 'x') + "\r\n" + std::string(25533, 'y') + "\r\nz\r\n", "v,1",
                "l50000",  // mark cut by a block
                "0+40002:x 40002+25535:y 65537+3:z "}};
  for (const auto& c : cases) {
    TestScan scan;
    ASSERT_EQ(scan.open(c.data, c.options, c.recordLength), status::success) << scan.messages.buffer.view();
    EXPECT_EQ(scanAndDescribe(scan), c.found) << c.options;
  }
}

TEST(RecordScan, IndexesOnlyTheRecordsThatItsConditionsSelect) {
  const std::string data = "1AB..X\n2AC..Y\n3AB\tZ\n4ab..Z\n5it's\n6zz\n";
  const std::pair<const char*, const char*> cases[] = {
      // options; first characters of the records selected
      {"p2=A", "123"},
      {"p2#A", "456"},
      {"p2=A,p3=B", "13"},
      {"p2=A,p2=a", ""},
      {"p2=A,p6=X", "1"},
      {"p0=A", ""},
      {"p2=\"A\"", "123"},
      {"p=2='AB'", "13"},
      {"p=2>='AC'", "2456"},
      {"p=2GE'AC'", "2456"},
      {"p=2n'AB'", "2456"},
      {"p=2<>'AB'", "2456"},
      {"p=2!='AB'", "2456"},
      {"p#2='AB'", "2456"},
      {"p#2#'AB'", "13"},
      {"p=2<='AB'", "13"},
      {"p=2e'it''s'", "5"},
      {"p=4='     Z'", "3"},
      {"p=2='AB     Z'", "3"},
      {"p=2<'AC'&6='X'", "1"},
      {"p=2L'AC'&6E'X'", "1"},
      {"p=\" 2 le 'AB' | 6G'X' \"", "1234"},
      {"p=2='AC'|6='X'", "12"},
      {"p=6='X'|2='AB'&6='Q'", "1"},
      {"p=3='B'&2='A'", "13"},
      // evaluated at both columns, each time with the terms up to there
      {"p=2='A'&3='B',p2=A", ""},
      {"p=2='A'|3='C',p2=A", "2"}};
  for (const auto& [options, expected] : cases) {
    TestScan scan;
    ASSERT_EQ(scan.open(data, "s,"s + options + ",1", "l20"), status::success) << options;
    std::string selected;
    for (const DataRecord& record : scanAll(scan).records) selected += record.key;
    EXPECT_EQ(selected, expected) << options;
    EXPECT_EQ(scan.scanner.findings.recordCount, 6U);
  }
}

// The string is as long as one may be. It begins behind a binary record, which does not end the comparison, and lies
// before, across or behind the end of a block.
TEST(RecordScan, ComparesBeyondTheEndOfABlock) {
  std::string string;
  for (int i = 0; i < 299; ++i) string += static_cast<char>('a' + i % 26);
  for (const std::size_t start : {65236U, 65238U, 65534U, 65536U, 65538U}) {
    for (const bool differs : {false, true}) {
      std::string data(66000, '.');
      data.replace(start, string.size(), string);
      if (differs) data[start + 298] = '!';
      TestScan scan;
      ASSERT_EQ(scan.open(data, "f=2,p=3='" + string + "',1"), status::success);
      std::vector<DataRecord> expected;
      if (!differs) expected.push_back({start - 2, 2, "."});
      EXPECT_TRUE(scanAll(scan).records == expected) << start;
    }
  }
}

constexpr std::string_view letters = "abzAZ`{@[\xE1\t";

// Up to three conditions, or an expression of up to four terms, then ranges that do not overlap, in any direction.
std::string randomSection(std::mt19937& random, bool expression) {
  std::string section = random() % 2 == 0 ? "-u," : "-";
  const auto conditions = random() % 4 + (expression ? 1 : 0);
  for (std::size_t i = 0; i < conditions; ++i) {
    section += !expression ? "p" : i > 0 ? std::string(1, "&|"[random() % 2]) : random() % 2 == 0 ? "p=" : "p#";
    section += std::to_string(random() % 30 + 1) + (expression ? "<>#"[random() % 3] : "=##"[random() % 3]);
    section += expression ? "'a'" : std::string(1, letters[random() % 10]) + ",";
  }
  if (expression && random() % 3 == 0) section += ",p" + std::to_string(random() % 30 + 1) + "#a,";
  std::vector<std::string> ranges;
  for (auto column = random() % 9 + 1; column < 40; column += random() % 12 + 1) {
    const std::string first = std::to_string(column);
    const std::string last = std::to_string(column += random() % 8);
    ranges.push_back("," + (random() % 2 == 0 ? first + "-" + last : last + "-" + first));
  }
  std::shuffle(ranges.begin(), ranges.end(), random);
  for (const std::string& range : ranges) section += range;
  return section;
}

TEST(KeyExtraction, CopyingRangesGivesTheKeyOfTheColumnWalk) {
  std::mt19937 random(2);
  std::vector<std::uint8_t> expanded(expandedSize);
  int compared = 0;
  for (int round = 0; round < 10000; ++round) {
    Settings settings;
    const bool expression = round % 2 == 0;
    const std::string section = randomSection(random, expression);
    ASSERT_EQ(parseOptionSection(settings, section), status::success) << section;
    closeColumnTable(settings.keys);
    std::string text;
    for (auto length = random() % 60; length > 0; --length) text += letters[random() % (expression ? 10 : 11)];
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(text.data());
    const RecordBytes record = {begin, begin + text.size()};
    const RecordComparison comparison{settings.selection, record.end, true};
    const KeyPlan plan = makeKeyPlan(settings.keys);
    if (expression && text.size() < plan.columnsNeeded) continue;
    if (plan.walkOnly) continue;
    std::vector<std::uint8_t> walked(plan.keyLength);
    std::vector<std::uint8_t> copied(plan.keyLength);
    const std::uint32_t matched = walkColumns(settings.keys, comparison, record, walked.data());
    const bool hasTabs = text.find('\t') != std::string::npos;
    const RecordBytes plain = hasTabs ? expandTabs(plan, record, expanded.data()) : record;
    ASSERT_EQ(copyKeyRanges(plan, comparison, plain, copied.data()), matched) << section << " of " << text;
    if (matched != settings.selection.optionCount) continue;
    ASSERT_EQ(walked, copied) << section << " of " << text;
    ++compared;
  }
  EXPECT_GT(compared, 3000);
}

}  // namespace
}  // namespace tarnvale
