#include <gtest/gtest.h>

#include <filesystem>

#include "cmdline/file_names.h"
#include "support/test_folder.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

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
  const std::pair<const char*, const char*> cases[] = {{"cust.txt:data", "/u/data/cust.txt"},
                                                       {"cust/txt:DATA", "/u/data/cust.txt"},
                                                       {"a.b/c:DATA", "/u/data/a.b.c"},
                                                       {"cust:open", "/u/open/cust"},
                                                       {"cust.txt:NONE", "cust.txt:NONE"},
                                                       {"towns/txt", "towns.txt"},
                                                       {"cust/txt", "cust/txt"},
                                                       {"a/b/c", "a/b/c"},
                                                       {"/txt", "/txt"},
                                                       {"x/a.b", "x/a.b"},
                                                       {"a|b/c", "a|b/c"}};
  FileName name;
  for (const auto& [given, resolved] : cases) {
    ASSERT_TRUE(name.assign(given));
    EXPECT_EQ(resolveFileName(naming, name), std::string_view(resolved).size());
    EXPECT_STREQ(name.c_str(), resolved);
  }
  for (const char* const refused : {"12345:LONG", ""}) {
    ASSERT_TRUE(name.assign(refused));
    EXPECT_EQ(resolveFileName(naming, name), 0U);
    EXPECT_STREQ(name.c_str(), refused);
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
  const struct {
    std::string section;
    std::string file;      // from byte 512 on
    const char* expected;  // extension separator and extensions, names folded, search path
  } cases[] = {{"QLX_TERM=term", "!?\4data\0inde\0"s, "!.data.inde 0 "},
               {"VELDA_TERM=term", "!?\3db\0xxisx\0\0"s, "!.db.isx 0 "},
               {"QLX_TERM=term", "!?\3dbs\0\0isx"s, "..TXT.ISI 0 "},
               {"QLX_TERM=term", "!?\5data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_TERM=" + std::string(600, 't'), "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               // too long: the folder, what follows it, and the extension alone
               {"QLX_SYSTEM=" + std::string(512, 's') + "\nQLX_TERM=term", "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_SYSTEM=" + std::string(511, 's') + "\nQLX_TERM=term", "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_SYSTEM=" + std::string(505, 's') + "\nQLX_TERM=term", "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_TERM=directory", "", "..TXT.ISI 0 "},
               {"", "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_TERM=other", "!?\4data\0inde\0"s, "..TXT.ISI 0 "},
               {"QLX_FNC=MIXED\nVELDA_FNC=lower", "", "..TXT.ISI 0 "},
               {"VELDA_FNC=lower\nVELDA_DBPATH=a:b", "", "..TXT.ISI 1 a:b"}};
  std::filesystem::create_directory(folder.path("directory.def"));
  ::unsetenv("TERM");
  for (const auto& c : cases) {
    folder.write("term.def", std::string(512, '?') + c.file);
    const Environment environment = environmentOf(c.section + "\nQLX_SYSTEM=" + folder.path() + "\n");
    const FileNaming naming = readFileNaming(environment);
    const std::string extensions = naming.extensionSeparator + std::string(naming.dataExtension);
    const char* const fold = naming.foldCase ? " 1 " : " 0 ";
    EXPECT_EQ(extensions + naming.indexExtension.c_str() + fold + std::string(naming.searchPath), c.expected);
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
