#include <gtest/gtest.h>

#include <filesystem>

#include "cmdline/command_line.h"
#include "cmdline/file_fields.h"
#include "cmdline/file_names.h"
#include "cmdline/option_section.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

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

TEST(CommandLine, IsRefusedAtTheFirstItemThatIsWrong) {
  std::string specs33 = "a -1";
  for (int column = 2; column <= 33; ++column) specs33 += "," + std::to_string(column);
  std::string terms24 = "a -1,p=1='a'";
  for (int i = 0; i < 23; ++i) terms24 += "&1='a'";
  const std::string text300 = "a -p=1='" + std::string(300, 'x') + "'";
  const std::string name250(250, 'n');
  const std::pair<StatusCode, std::vector<std::string>> cases[] = {
      {0, {"a -1", "a -c", "a -r", "a -p65535=a,1", terms24}},
      {-12, {"a -?"}},
      {-104, {"", "a", "a,b", "a,b,l5,/tmp x", "a -v"}},
      {-107, {name250, "a," + name250, "a,b,," + name250, "a,,l" + std::string(254, '0')}},
      {-108,
       {"a,,l" + std::string(253, '0') + " -1", "a,,l0 -1", "a,,x100 -1", "a,,l -1", "a,,l10x -1", "a,,L65535 -1",
        "a,,l99999999999 -1"}},
      {-110, {"none -1"}},
      {-111, {"a -65535", "a -f=1,65536"}},
      {-112, {"a -u1-10k", "a -u -1-10", "a -1-10-20", "a -1,k", "a -0-5", "a -1--2"}},
      {-113, {"a -1-10,5", "a -5,10-1"}},
      {-114, {"a -p200=a,1-150", "a -1-151"}},
      {-115, {specs33}},
      {-118, {"a -p1", "a -p1!a", "a -p65536=a", "a -p1=a,p=1='X'", "a -1-149,p200=a"}},
      {-118, {"a -p=1=''", "a -p=0='A'", "a -p=32768='A'", "a -p=='A'", "a -p=1!'A'", "a -p=1NE'A'", "a -p=1='A"}},
      {-118,
       {"a -p=1=A", "a -p=1='A'&", "a -p=\"1='A'", "a -p=1='A'\"", "a -p=1E'X'p=2='Y'", terms24 + "&1='a'", text300}},
      {-124, {"a -f=5,v,1"}},
      {-128, {"a -c,1", "a -1,c"}},
      {-129, {"a -m5 1", "a -m5"}},
      {-133, {"a -f1-10", "a -g=0,1"}},
      {-135, {"a -p1=a,p2=a,p3=a,p4=a,p5=a,p6=a,p7=a,p8=a,p9=a,p10=a,p11=a"}},
      {-136, {"a -1-10u", "a -p1=a,u"}},
      {-137, {"a -g=10,f=11"}},
      {-159, {"a -o=3"}},
      {-171, {"a -c=2"}},
  };
  const auto makeFiles = [](const Settings& settings) {
    return settings.dataName.view() == "none" ? status::workFileNotCreated : status::success;
  };
  for (const auto& [status, lines] : cases) {
    for (const std::string& line : lines) {
      TestMessages messages;
      EXPECT_EQ(parseCommandLine(line, Environment(), messages, makeFiles).status, status) << line;
    }
  }
}

// The tests of names work in their folder, so that names without directory can be found.
class FileNames : public testing::Test {
 protected:
  FileNames() { std::filesystem::current_path(folder.path()); }
  ~FileNames() override { std::filesystem::current_path("/"); }

  Environment environmentOf(const std::string& section) {
    return Environment(folder.write("my.ini", "[environment]\n" + section).c_str());
  }

  TestFolder folder;
};

TEST_F(FileNames, ResolveVolumesAndSlashesThatStandForTheSeparator) {
  std::filesystem::create_directory("cust");
  const Environment environment = environmentOf(
      "QLX_DATA=/second\nQLXVOL_DATA=/u/data\nVELDA_OPEN=/u/open/\nQLX_LONG=" + std::string(250, 'd') + "\n");
  const FileNaming naming = readFileNaming(environment);
  const std::pair<std::string_view, std::string_view> cases[] = {{"cust.txt:data", "/u/data/cust.txt"},
                                                                 {"cust/txt:DATA", "/u/data/cust.txt"},
                                                                 {"a.b/c:DATA", "/u/data/a.b.c"},
                                                                 {"cust:open", "/u/open/cust"},
                                                                 {"cust.txt:NONE", "cust.txt:NONE"},
                                                                 {"towns/txt", "towns.txt"},
                                                                 {"cust/txt", "cust/txt"},
                                                                 {"a/b/c", "a/b/c"},
                                                                 {"/txt", "/txt"},
                                                                 {"x/a.b", "x/a.b"},
                                                                 {"a|b/c", "a|b/c"},
                                                                 {"12345:LONG", ""},  // refused, and left alone
                                                                 {"", ""}};
  for (const auto& [given, resolved] : cases) {
    FileName name;
    ASSERT_TRUE(name.assign(given));
    EXPECT_EQ(resolveFileName(naming, name), resolved.size()) << given;
    EXPECT_EQ(name.view(), resolved.empty() ? given : resolved);
  }
}

TEST_F(FileNames, AreFoundAlongTheSearchPathUnlessTheFileIsHere) {
  std::filesystem::create_directories("B");
  std::filesystem::create_directories("c");
  for (const char* const name : {"B/far.TXT", "c/far.TXT", "here.TXT", "B/here.TXT"}) folder.write(name, "");
  const Environment environment = environmentOf("QLX_PATH=" + folder.path("a") + "::B:c\n");
  FileNaming naming = readFileNaming(environment);
  const std::pair<const char*, const char*> cases[] = {
      {"here.TXT", "here.TXT"}, {"far.TXT", "B/far.TXT"}, {"c/far.TXT", "c/far.TXT"}, {"no.v2.TXT", "no.v2.TXT"}};
  for (const auto& [given, found] : cases) {
    FileNameParts parts;
    FileName name;
    EXPECT_TRUE(splitFileName(given, parts) && findAndBuildFileName(naming, name, parts));
    EXPECT_EQ(name.view(), found);
    EXPECT_EQ(parts.extension.view(), ".TXT");
    naming.foldCase = true;
    EXPECT_TRUE(buildFileName(naming, name, parts));
    EXPECT_EQ(name.view().find_first_of("BTX"), std::string_view::npos) << name.view();
    naming.foldCase = false;
  }
}

TEST_F(FileNames, AreReadAsTheEnvironmentAndTheDefinitionFileTell) {
  const std::string definition = "!?\4data\0inde\0"s;
  // settings; the definition file from byte 512 on; extension separator and extensions, names folded, search path
  const std::string cases[][3] = {
      {"QLX_TERM=term", definition, "!.data.inde 0 "},
      {"VELDA_TERM=term", "!?\3db\0xxisx\0\0"s, "!.db.isx 0 "},
      {"QLX_TERM=term", "!?\3dbs\0\0isx"s, "..TXT.ISI 0 "},
      {"QLX_TERM=term", "!?\5data\0inde\0"s, "..TXT.ISI 0 "},
      {"QLX_TERM=" + std::string(600, 't'), definition, "..TXT.ISI 0 "},
      // too long: the folder, what follows it, and the extension alone
      {"QLX_SYSTEM=" + std::string(512, 's') + "\nQLX_TERM=term", definition, "..TXT.ISI 0 "},
      {"QLX_SYSTEM=" + std::string(511, 's') + "\nQLX_TERM=term", definition, "..TXT.ISI 0 "},
      {"QLX_SYSTEM=" + std::string(505, 's') + "\nQLX_TERM=term", definition, "..TXT.ISI 0 "},
      {"QLX_TERM=directory", "", "..TXT.ISI 0 "},
      {"", definition, "..TXT.ISI 0 "},
      {"QLX_FNC=MIXED\nVELDA_FNC=lower", "", "..TXT.ISI 0 "},
      {"VELDA_FNC=lower\nVELDA_DBPATH=a:b", "", "..TXT.ISI 1 a:b"}};
  std::filesystem::create_directory(folder.path("directory.def"));
  ::unsetenv("TERM");
  for (const auto& [section, file, expected] : cases) {
    folder.write("term.def", std::string(512, '?') + file);
    const Environment environment = environmentOf(section + "\nQLX_SYSTEM=" + folder.path() + "\n");
    const FileNaming naming = readFileNaming(environment);
    const std::string extensions = naming.extensionSeparator + std::string(naming.dataExtension);
    const char* const fold = naming.foldCase ? " 1 " : " 0 ";
    EXPECT_EQ(extensions + naming.indexExtension.c_str() + fold + std::string(naming.searchPath), expected);
  }
}

TEST(Settings, OfTheIniFileComeBeforeThoseOfTheProcess) {
  const std::pair<std::string, std::string> cases[] = {
      {"[Environment]\nSETTING = /var/work \n", "/var/work"},
      {"; remark\n[other]\nsetting=no\n[ environment\t]\r\nsetting\t=\t/x\r\n", "/x"},
      {"[environment]\nSETTING=last line", "last line"},
      {"[environment]\nSETTING=a=b\n", "a=b"},
      {"[environment]\n  SETTING=/x\n", "process"},
      {"[environment]\nSETTING=\n", "process"},
      {"[environment]\n[next]\nSETTING=/x\n", "process"},
      {"[environment\nSETTING=/x\n", "process"},
      {"", "process"},
      // Longer lines come in pieces of 900 characters: the third one here is a line of its own.
      {"[environment]\n" + std::string(1800, 'x') + "SETTING=piece\n", "piece"},
      {"[environment]\nSETTING=" + std::string(1000, 'v') + "\n", std::string(892, 'v')}};
  const TestFolder folder;
  ::setenv("SETTING", "process", 1);
  for (const auto& [content, value] : cases) {
    const Environment environment(folder.write("my.ini", content).c_str());
    EXPECT_EQ(lookupSetting(environment, "SETTING"), value) << content;
  }
  const Environment missing(folder.path("missing.ini").c_str());
  EXPECT_EQ(lookupFirstSetting(missing, {"NOT_SET_ANYWHERE", "SETTING"}), "process");
}

}  // namespace
}  // namespace tarnvale
