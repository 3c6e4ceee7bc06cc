#include "cmdline/command_line.h"

#include <gtest/gtest.h>

#include "cmdline/file_fields.h"
#include "cmdline/option_section.h"
#include "support/test_parts.h"

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
    Settings settings;
    std::string_view rest = line;
    EXPECT_EQ(takeFileFields(settings, rest), status::success) << line;
    std::string fields = std::string(settings.dataName) + "|" + settings.indexName.c_str() + "|";
    fields += std::to_string(settings.recordLength) + "|" + settings.tempPath.c_str() + "|";
    EXPECT_EQ(fields + settings.storedCommandLine.c_str() + "|" + std::string(rest), expected);
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
    Settings settings;
    std::string_view rest = line;
    EXPECT_EQ(takeFileFields(settings, rest), status) << line;
  }
}

// One letter for each setting that is on; then the numbers.
std::string settingsOf(const Settings& s) {
  const auto on = [](const char* letter, bool value) { return std::string(value ? letter : ""); };
  const std::string command = on("c", s.compact) + on("i", s.display) + on("r", s.reindex) + on("L", s.compactLocking) +
                              on("k", s.keepStoredCommand) + on("z", s.discardPathInHeader) +
                              on("y", s.noDriveInHeader) + on("q", s.quitIfNoData) + on("C", !s.recordCountEnabled);
  const std::string keys = on("n", s.noDuplicates) + on("D", s.ignoreDuplicates) + on("$", s.quietDuplicates) +
                           on("E", s.errorFileWanted) + on("u", s.keys.upperCase);
  const std::string records = on("v", s.variableLength) + on("s", s.spaceCompression) + on("b", !s.tabExpansion) +
                              on("f", s.binaryRecords) + on("g", s.binaryWithEor) + on("M", s.markless) +
                              on("w", s.writeAllAtEnd) + on("O", !s.recordNumberAddressing);
  const auto number = [](auto value) { return " " + std::to_string(value); };
  return command + keys + records + number(s.keys.keyLength) + number(s.recordLength) + number(s.maxFillPercent) +
         number(s.osType);
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
      {"-n$", "nD$ 0 0 100 0"},
      {"-so", "vswO 0 0 100 16"},
      {"-c=1", "c 0 0 100 0"},
      {"-nd", "E 0 0 100 0"},
      {"-f=80 1-3", "fM 3 80 100 0"},
      {"-ir,k", "ir 0 0 100 0"},
      {"-e q w z b m50 o=1,y,1", "zyqEbw 1 0 50 8"},
      {"-1-1i0rz2x200>k!", "irzC 103 0 100 0"},
      {"-1b2e3q4s5v6w7x8y9d", "yqCEvsbwO 9 0 100 0"},
      {"-u 1-10 k=3", "u 10 0 100 0"}};
  for (const auto& [section, expected] : cases) {
    Settings settings;
    EXPECT_EQ(parseOptionSection(settings, section), status::success) << section;
    EXPECT_EQ(settingsOf(settings), expected) << section;
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
    Settings settings;
    EXPECT_EQ(parseOptionSection(settings, section), status) << section;
  }
}

TEST(CommandLine, IsCheckedOnceItsOptionsAreKnown) {
  const std::pair<const char*, StatusCode> cases[] = {
      {"data -1", 0},    {"idx -c", 0},           {"idx -r", 0},         {"data", -104},   {"data,isi,l5,/tmp x", -104},
      {"data -v", -104}, {"data -f=5,v,1", -124}, {"data -g=0,1", -133}, {"none -1", -110}};
  for (const auto& [line, status] : cases) {
    TestMessages messages;
    const auto makeFiles = [](const Settings& settings) {
      return settings.dataName.view() == "none" ? status::workFileNotCreated : status::success;
    };
    EXPECT_EQ(parseCommandLine(line, Environment(), messages, makeFiles).status, status) << line;
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
    Settings settings;
    EXPECT_EQ(parseOptionSection(settings, section), status::invalidPrimaryOption) << section;
  }
  Settings settings;
  EXPECT_EQ(parseOptionSection(settings, terms24), status::success);
}

}  // namespace
}  // namespace tarnvale
