#include "sort/record_scan.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "cmdline/key_specification.h"
#include "cmdline/option_section.h"
#include "sort/end_of_record.h"
#include "sort/key_extraction.h"
#include "sort/sort_phase.h"
#include "support/data_sample.h"
#include "support/test_run.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(EndOfRecord, IsThatOfTheLastRecordWhereverChunksEnd) {
  using enum EorConvention;
  const struct {
    std::string content;
    EorConvention convention;
    int recordLength;  // with the mark, 0 when none is found
    std::string mark;
  } cases[] = {
      {"abc\nabcde\n", lf, 6, "\n"},      {"abc\rabc\r", cr, 4, "\r"},         {"abc\nab\r\n", crLf, 4, "\r\n"},
      {"ab\n\0\0\0abcd\n"s, lf, 5, "\n"}, {"ab\n\rabcd\n\r", lfCr, 6, "\n\r"}, {"abc\r\n\0\0\0"s, crLf, 5, "\r\n"},
      {"abc\nxy", lf, 4, "\n"},           {"abc\n\x1A", lf, 4, "\n"},          {"\n\n", lf, 1, "\n"},
      {"", systemDefault, 0, "\n"},       {"abcdef", systemDefault, 0, "\n"},  {"\r", systemDefault, 0, "\r"}};
  for (const auto& c : cases) {
    for (const std::size_t bufferSize : {2U, 3U, 4U, 7U, 64U}) {
      TestRun run;
      run->inputFd = ::open(run.folder.write("data", c.content).c_str(), O_RDONLY);
      std::vector<std::uint8_t> buffer(bufferSize);
      EXPECT_EQ(DetectEndOfRecord(*run, run->inputFd, buffer), c.convention) << c.content;
      EXPECT_EQ(run->foundRecordLength, c.recordLength) << c.content;
      const char mark[] = {static_cast<char>(run->eorChar1), static_cast<char>(run->eorChar2)};
      EXPECT_EQ(std::string(mark, run->eorLength), c.mark);
      if (c.convention == systemDefault) continue;
      run->variableLengthAllowed = true;  // then only the last chunk counts
      const bool seen = c.content.find_last_of("\r\n") + bufferSize > c.content.size();
      EXPECT_EQ(DetectEndOfRecord(*run, run->inputFd, buffer), seen ? c.convention : systemDefault) << c.content;
    }
  }
}

struct Scan {
  std::vector<DataRecord> records;
  StatusCode status;
};

Scan scanAll(TestRun& run) {
  Scan scan{{}, divideSortArea(*run, run->keyLength)};
  while (scan.status == status::trainFull) {
    scan.status = CreateSubList(*run);
    if (scan.status < status::inputExhausted) break;
    const std::uint8_t* entry = run->sortAreaBase;
    for (; !isEndMarker(entry); entry += run->sortEntrySize) {
      const std::string key(reinterpret_cast<const char*>(entryKey(entry)), run->keyLength);
      scan.records.push_back({entryLfa(entry), entryRecordLength(entry), key});
    }
    const bool full = entry == run->sortAreaBase + (run->sortEntryCapacity - 1) * std::size_t{run->sortEntrySize};
    EXPECT_TRUE(full || scan.status == status::inputExhausted) << "a train ended early";
  }
  return scan;
}

TEST(RecordScan, FindsEveryRecordOfEveryFormatAcrossBlocksAndTrains) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const DataSample sample = makeSample(round, 300000, random);
    TestRun run(4096);
    ASSERT_EQ(run.open(sample.bytes, sample.options, sample.recordLength), status::success);
    const Scan scan = scanAll(run);
    EXPECT_EQ(scan.status, status::inputExhausted) << round;
    EXPECT_TRUE(scan.records == sample.records) << round;
    EXPECT_EQ(deletedLfas, sample.deletedLfas) << round;
    EXPECT_EQ(run->deletedRecordCount, sample.deletedLfas.size());
    EXPECT_FALSE(run->variableLengthFound || run->recordSizeInvalid) << round;
  }
}

// Records as position+length:key, deleted records, what was found irregular, and a failure.
std::string scanAndDescribe(TestRun& run) {
  const Scan scan = scanAll(run);
  std::string text;
  for (const auto& [lfa, length, key] : scan.records) {
    text += std::to_string(lfa) + "+" + std::to_string(length) + ":" + key + " ";
  }
  for (const std::uint64_t lfa : deletedLfas) text += "deleted " + std::to_string(lfa) + " ";
  text += run->variableLengthFound ? "variable " : "";
  text += run->invalidRecordPosition ? "misplaced " : "";
  text += run->spaceCompressionFound ? "tabs " : "";
  text += run->recordSizeInvalid ? "long " : "";
  const bool failed = scan.status != status::inputExhausted;
  return failed ? std::to_string(scan.status) + " at " + std::to_string(run->currentLfa) : text;
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
               {"aBz{\nxyz\n", "v,u,4-1", "", "0+5:{ZBA 5+4: ZYX "},
               {"ab\tc\n", "s,9,2-3", "", "0+5:cb  tabs "},
               {"ab\tc\n", "v,b,3-4", "", "0+5:\tc "},
               {"abcd\n" + std::string(12, '\0') + "ABCD\n", "1", "",
                "0+5:a 17+5:A deleted 5 deleted 10 deleted 15 variable misplaced "},
               {"abc\n\0\0\0\0\0\0\0\0"s, "1", "", "0+4:a deleted 4 deleted 8 "},
               {"a\n\0\0b\n"s, "v,1", "", "0+2:a 4+2:b "},
               {"ab\n\x1Axxx", "v,1", "", "0+3:a "},
               {"a\x1A\nbc\x1A", "v,2", "", "0+3:\x1A 3+3:c "},
               {"\x1A"s + "a\0\0\0b"s, "f=2,2", "", "0+2:a 4+2:b deleted 2 "},
               {"ab\ncdxef\n", "g=2,1", "", "-5 at 3"},
               {"ab\r\ncd\n\r", "g=2,1", "", "-5 at 0"},
               {"abcde\nab\n", "s,1", "l4", "0+6:a 6+3:a "},
               {"abcdef\nab\n", "s,1", "l4", "0+7:a 7+3:a long "},
               {std::string(65533, 'x') + "\n", "v,1", "l9", "0+65534:x "},
               {std::string(65534, 'x') + "\n", "v,1", "l9", "-161 at 0"},
               {"a\r\n" + std::string(65531, 'x') + "\r\n", "v,1", "l9", "0+3:a 3+65533:x "},
               {"a\r\n" + std::string(65532, 'x') + "\r\n", "v,1", "l9", "-161 at 3"},
               {"a" + std::string(65000, 'x') + "z\n", "v,65002,1", "l9", "0+65003:za "},
               {std::string(40000, 'x') + "\r\n" + std::string(25533, 'y') + "\r\nz\r\n", "v,1",
                "l50000",  // mark cut by a block
                "0+40002:x 40002+25535:y 65537+3:z "}};
  for (const auto& c : cases) {
    TestRun run;
    ASSERT_EQ(run.open(c.data, c.options, c.recordLength), status::success) << run->messageBuffer.view();
    EXPECT_EQ(scanAndDescribe(run), c.found) << c.options;
  }
}

TEST(RecordScan, IndexesOnlyTheRecordsThatItsConditionsSelect) {
  const std::string data = "1AB..X\n2AC..Y\n3AB\tZ\n4ab..Z\n5it's\n6zz\n";
  const std::pair<const char*, const char*> cases[] = {// options; first characters of the records selected
                                                       {"p2=A", "123"},          {"p2#A", "456"},
                                                       {"p2=A,p3=B", "13"},      {"p2=A,p2=a", ""},
                                                       {"p2=A,p6=X", "1"},       {"p0=A", ""},
                                                       {"p2=\"A\"", "123"},      {"p=2='AB'", "13"},
                                                       {"p=2>='AC'", "2456"},    {"p=2GE'AC'", "2456"},
                                                       {"p=2n'AB'", "2456"},     {"p=2<>'AB'", "2456"},
                                                       {"p=2!='AB'", "2456"},    {"p#2='AB'", "2456"},
                                                       {"p#2#'AB'", "13"},       {"p=2<='AB'", "13"},
                                                       {"p=2e'it''s'", "5"},     {"p=4='     Z'", "3"},
                                                       {"p=2='AB     Z'", "3"},  {"p=2<'AC'&6='X'", "1"},
                                                       {"p=2L'AC'&6E'X'", "1"},  {"p=\" 2 le 'AB' | 6G'X' \"", "1234"},
                                                       {"p=2='AC'|6='X'", "12"}, {"p=6='X'|2='AB'&6='Q'", "1"},
                                                       {"p=3='B'&2='A'", "13"}};
  for (const auto& [options, expected] : cases) {
    TestRun run;
    ASSERT_EQ(run.open(data, "s,"s + options + ",1"), status::success) << options;
    std::string selected;
    for (const DataRecord& record : scanAll(run).records) selected += record.key;
    EXPECT_EQ(selected, expected) << options;
    EXPECT_EQ(run->scannedRecordCount, 6U);
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
  TestRun run;
  int compared = 0;
  for (int round = 0; round < 10000; ++round) {
    static_cast<CommandLineState&>(*run) = {};
    const bool expression = round % 2 == 0;
    const std::string section = randomSection(random, expression);
    ASSERT_EQ(parseOptionSection(*run, section), status::success) << section;
    closeColumnTable(*run);
    run->sortKeyLength = run->keyLength;
    std::string text;
    for (auto length = random() % 60; length > 0; --length) text += letters[random() % (expression ? 10 : 11)];
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(text.data());
    const RecordBytes record = {begin, begin + text.size()};
    run->readAheadEnd = record.end;
    const KeyPlan plan = makeKeyPlan(*run);
    if (expression && text.size() < plan.columnsNeeded) continue;
    std::vector<std::uint8_t> walked(run->keyLength);
    std::vector<std::uint8_t> copied(run->keyLength);
    walkColumns(*run, record, true, walked.data());
    const std::uint32_t matched = run->matchCount;
    copyKeyRanges(*run, plan, expandTabs(plan, record), copied.data());
    ASSERT_EQ(run->matchCount, matched) << section << " of " << text;
    if (matched != run->primaryOptionCount) continue;
    ASSERT_EQ(walked, copied) << section << " of " << text;
    ++compared;
  }
  EXPECT_GT(compared, 3000);
}

}  // namespace
}  // namespace tarnvale
