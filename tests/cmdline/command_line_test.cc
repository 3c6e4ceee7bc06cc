#include <gtest/gtest.h>

#include "cmdline/file_fields.h"
#include "cmdline/key_specification.h"
#include "cmdline/option_section.h"
#include "support/test_run.h"

namespace tarnvale {
namespace {

TEST(FileFields, AreSeparatedByCommasOrBlanks) {
  const std::string name249(249, 'n');
  // line; data|isi|record length|folder of the work files|stored command line|rest
  const std::pair<std::string, std::string> cases[] = {
      {"test -1-10", "test||0||test,,-1-10|-1-10"},
      {"test,test,l100 -un,1-10", "test|test|100||test,test,l100 -un,1-10|-un,1-10"},
      {"a , b -1", "a|b|0||a,b,-1|-1"},
      {"a b -1", "a|b|0||a,b,-1|-1"},
      {"a,b;1", "a|b|0||a,b,;1|;1"},
      {"a,b,,/tmp -1", "a|b|0|/tmp|a,b,,/tmp -1|-1"},
      {"a,b,,c: -1", "a|b|0|c:/|a,b,,c: -1|-1"},
      {"a,,L65534 -1", "a||65534||a,,L65534 -1|-1"},
      {name249 + " -1", name249 + "||0||" + name249 + ",,-1|-1"}};
  for (const auto& [line, expected] : cases) {
    TestRun run;
    std::string_view rest = line;
    EXPECT_EQ(takeFileFields(*run, rest), status::success) << line;
    std::string fields = std::string(run->inputName) + "|" + run->outputName.c_str() + "|";
    fields += std::to_string(run->recordLengthSpec) + "|" + run->tempPath.c_str() + "|";
    EXPECT_EQ(fields + run->storedCommandLine.c_str() + "|" + std::string(rest), expected);
  }
}

TEST(FileFields, ThatAreWrongAreRefused) {
  const std::string name250(250, 'n');
  const std::pair<std::string, StatusCode> cases[] = {
      {"", -104},           {"test", -104},         {"test,isi", -104},
      {"a,,l0 -1", -108},   {"a,,x100 -1", -108},   {"a,,l -1", -108},
      {"a,,l10x -1", -108}, {"a,,L65535 -1", -108}, {"a,,l99999999999 -1", -108},
      {name250, -107},      {"a," + name250, -107}, {"a,b,," + name250, -107}};
  for (const auto& [line, status] : cases) {
    TestRun run;
    std::string_view rest = line;
    EXPECT_EQ(takeFileFields(*run, rest), status) << line;
  }
}

// One letter for each setting that is on; then the numbers.
std::string settingsOf(const RunContext& r) {
  constexpr std::string_view letters = "ciLbkz$nDvEqsCwfOrgu";
  const bool settings[] = {r.compactOptions % 2 == 1,  r.displayInfoRequested,  r.compactLocking,  !r.tabExpansion,
                           r.compactOptions / 2 == 1,  r.discardPathInHeader,   r.quietDuplicates, r.noDuplicates,
                           r.ignoreDuplicatesForNodup, r.variableLengthAllowed, r.errorFileWanted, r.quitIfNoData,
                           r.spaceCompressionAllowed,  !r.recordCountEnabled,   r.writeAllAtEnd,   r.binaryRecords,
                           !r.recordNumberAddressing,  r.reindexRequested,      r.binaryWithEor,   r.upperCaseKeys};
  std::string text;
  for (std::size_t i = 0; i < letters.size(); ++i) text += settings[i] ? letters.substr(i, 1) : "";
  const auto number = [](auto value) { return " " + std::to_string(value); };
  return text + number(r.keyLength) + number(r.recordLengthSpec) + number(r.maxFillPercent) + number(r.osType);
}

TEST(OptionSection, SetsWhatItsLettersSay) {
  const std::pair<const char*, const char*> cases[] = {
      // section; settings, key bytes, record length, fill percent, OS type
      {"-UN,1-10", "nEu 10 0 100 0"},
      {"-g=80,1", "fg 1 80 100 0"},
      {"-c=0 , ", "cLk 0 0 100 0"},
      {"-n0", "nDE 0 0 100 0"},
      {"-v", "vwO 0 0 100 0"},
      {"-c", "cL 0 0 100 0"},
      {"-n$", "$nD 0 0 100 0"},
      {"-so", "vswO 0 0 100 16"},
      {"-c=1", "c 0 0 100 0"},
      {"-nd", "E 0 0 100 0"},
      {"-f=80 1-3", "f 3 80 100 0"},
      {"-ir,k", "ir 0 0 100 0"},
      {"-e q w z b m50 o=1,1", "bzEqw 1 0 50 8"},
      {"-1-10z2x200>k!", "zC 103 0 100 0"},
      {"-u 1-10 k=3", "u 10 0 100 0"}};
  for (const auto& [section, settings] : cases) {
    TestRun run;
    EXPECT_EQ(parseOptionSection(*run, section), status::success) << section;
    EXPECT_EQ(settingsOf(*run), settings) << section;
  }
}

TEST(OptionSection, StopsAtTheFirstItemThatIsWrong) {
  std::string specs33 = "-1";
  for (int column = 2; column <= 33; ++column) specs33 += "," + std::to_string(column);
  const std::string eleven = "-p1=a,p2=a,p3=a,p4=a,p5=a,p6=a,p7=a,p8=a,p9=a,p10=a,p11=a";
  const std::pair<std::string, StatusCode> cases[] = {
      {"-?", -12},       {"-c,1", -128},          {"-1,c", -128},          {"-c=2", -171},      {"-m5 1", -129},
      {"-m5", -129},     {"-o=3", -159},          {"-f1-10", -133},        {"-1-10u", -136},    {"-g=10,f=11", -137},
      {"-p1=a,u", -136}, {"-u1-10k", -112},       {"-u -1-10", -112},      {"-1-10-20", -112},  {"-p200=a,1-150", -114},
      {"-1,k", -112},    {"-0-5", -112},          {"-1-10,5", -113},       {"-65535", -111},    {"-f=1,65536", -111},
      {specs33, -115},   {"-1-151", -114},        {"-p1=a,p=1='X'", -118}, {"-5,10-1", -113},   {eleven, -135},
      {"-p1", -118},     {"-1-149,p200=a", -118}, {"-p1!a", -118},         {"-p65536=a", -118}, {"-1--2", -112}};
  for (const auto& [section, status] : cases) {
    TestRun run;
    EXPECT_EQ(parseOptionSection(*run, section), status) << section;
  }
}

TEST(KeySpecifications, BecomeColumnsInTheOrderGiven) {
  const std::pair<const char*, const char*> cases[] = {
      // section; columns in key order, counted from 1, and the stored starts and lengths
      {"-1-3,7,6-5", "1 2 3 7 6 5 0+3 6+1 5+0 "}, {"-30-27", "30 29 28 27 29+65534 "}, {"-5-0", "5 4+1 "},
      {"-65534,1", "65534 1 65533+1 0+1 "},       {"-p3=x,4-2", "4 3 2 3+65535 "},
  };
  for (const auto& [section, expected] : cases) {
    TestRun run;
    EXPECT_EQ(parseOptionSection(*run, section), status::success);
    closeColumnTable(*run);
    std::vector<int> columns(run->keyLength);
    for (std::uint32_t i = 0; i < run->columnEntryCount; ++i) {
      columns.at(run->columnTable[i].keyPosition) = run->columnTable[i].column + 1;
      EXPECT_TRUE(i == 0 || run->columnTable[i - 1].column < run->columnTable[i].column);
    }
    EXPECT_EQ(run->columnTable[run->columnEntryCount].keyPosition, ColumnEntry::endOfTable);
    std::string text;
    for (const int column : columns) text += std::to_string(column) + " ";
    for (std::uint32_t i = 0; i < run->keySpecCount; ++i) {
      text += std::to_string(run->keySpecs[i].start) + "+" + std::to_string(run->keySpecs[i].length) + " ";
    }
    EXPECT_EQ(text, expected);
  }
}

TEST(PrimaryOption, RefusesExpressionsThatAreWrong) {
  std::string terms24 = "-p=1='a'";
  for (int i = 0; i < 23; ++i) terms24 += "&1='a'";
  const std::string text300 = "-p=1='" + std::string(300, 'x') + "'";
  const std::string cases[] = {"-p=1=''",    "-p=0='A'",        "-p=32768='A'",     "-p=='A'",   "-p=1!'A'",
                               "-p=1NE'A'",  "-p=1='A",         "-p=1=A",           "-p=1='A'&", "-p=\"1='A'",
                               "-p=1='A'\"", "-p=1E'X'p=2='Y'", terms24 + "&1='a'", text300};
  for (const std::string& section : cases) {
    TestRun run;
    EXPECT_EQ(parseOptionSection(*run, section), status::invalidPrimaryOption) << section;
  }
  TestRun run;
  EXPECT_EQ(parseOptionSection(*run, terms24), status::success);
}

}  // namespace
}  // namespace tarnvale
