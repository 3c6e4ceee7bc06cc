#include <gtest/gtest.h>

#include <filesystem>

#include "cmdline/file_names.h"
#include "cmdline/settings.h"
#include "support/test_run.h"

namespace tarnvale {
namespace {

// The tests of names work in their folder, so that names without directory can be found.
class FileNames : public testing::Test {
 protected:
  FileNames() { std::filesystem::current_path(run.folder.path()); }
  ~FileNames() override { std::filesystem::current_path("/"); }

  TestRun run;
};

TEST_F(FileNames, ResolveVolumesAndSlashesThatStandForTheSeparator) {
  std::filesystem::create_directory("cust");
  ::setenv("QLX_DATA", "/second", 1);
  ::setenv("QLXVOL_DATA", "/u/data", 1);
  ::setenv("VELDA_OPEN", "/u/open/", 1);
  ::setenv("QLX_LONG", std::string(250, 'd').c_str(), 1);
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
    EXPECT_EQ(resolveFileName(*run, name, nameCapacity, '.'), std::string_view(resolved).size());
    EXPECT_STREQ(name.c_str(), resolved);
  }
  for (const char* const refused : {"12345:LONG", ""}) {
    ASSERT_TRUE(name.assign(refused));
    EXPECT_EQ(resolveFileName(*run, name, nameCapacity, '.'), 0U);
    EXPECT_STREQ(name.c_str(), refused);
  }
}

TEST_F(FileNames, AreFoundAlongTheSearchPathUnlessTheFileIsHere) {
  std::filesystem::create_directories("B");
  std::filesystem::create_directories("c");
  for (const char* const name : {"B/far.TXT", "c/far.TXT", "here.TXT", "B/here.TXT"}) run.folder.write(name, "");
  const std::string path = run.folder.path("a") + "::B:c";
  run->searchPath = ::strdup(path.c_str());
  const std::pair<const char*, const char*> cases[] = {
      {"here.TXT", "here.TXT"}, {"far.TXT", "B/far.TXT"}, {"c/far.TXT", "c/far.TXT"}, {"no.v2.TXT", "no.v2.TXT"}};
  for (const auto& [given, found] : cases) {
    FileNameParts parts;
    FileName name;
    EXPECT_TRUE(splitFileName(given, parts) && findAndBuildFileName(*run, name, parts));
    EXPECT_EQ(name.view(), found);
    EXPECT_EQ(parts.extension.view(), ".TXT");
    run->foldFileNameCase = true;
    EXPECT_TRUE(buildFileName(*run, name, parts));
    EXPECT_EQ(name.view().find_first_of("BTX"), std::string_view::npos) << name.view();
    run->foldFileNameCase = false;
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
  TestRun run;
  ::setenv("SETTING", "process", 1);
  for (const auto& [content, value] : cases) {
    ASSERT_TRUE(run->iniFileName.assign(run.folder.write("my.ini", content)));
    EXPECT_EQ(lookupSetting(*run, "SETTING"), value) << content;
  }
  ASSERT_TRUE(run->iniFileName.assign(run.folder.path("missing.ini")));
  EXPECT_EQ(lookupFirstSetting(*run, {"NOT_SET_ANYWHERE", "SETTING"}), "process");
}

}  // namespace
}  // namespace tarnvale
