#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <tuple>

#include "support/index_file.h"
#include "support/program_run.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(Program, EndsEveryRunWithItsMessageAndLeavesOnlyWhatHolds) {
  const std::string little = "-m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 ";
  std::string wide;
  for (int i = 0; i < 1000; ++i) wide += std::to_string(10000 + i * 7919 % 1000) + std::string(95, '.') + "\n";
  const std::string name256(256, 'n');
  const auto setVolume = [] { ::setenv("QLXVOL_V", std::string(250, 'd').c_str(), 1); };
  const std::string wrong = "Data file is not in the correct format.  Index file will be deleted.\n";
  // data; arguments; exit status; among the messages, or none; files left
  const std::tuple<std::string, std::string, int, std::string, const char*> cases[] = {
      {"abc\nabd\n", "data,out -1-3", 0, "\n2 records, 0 deleted entries\nStart time = ", "data.TXT out.ISI"},
      {"abc\nabd\n", "data -1-3", 0, "\nIndexing data.TXT into data.ISI\n", "data.ISI data.TXT"},
      {"abc\nabd\n", "data,out -n,1", 1, "\nData file has 1 duplicate key entries.\n" + wrong, "data.TXT out.ERR"},
      {"abc\nabd\n", "data,out -n0,1", 0, "\nDuplicate Key ignored at:", "data.TXT out.ERR out.ISI"},
      {"abc\nabd\n", "data,out -e,1-3", 0, "tarnvale data,out -e,1-3 \n\nMORVANE ", "data.TXT out.ISI"},
      {"abcd\nab\n", "data,out -1", 1, "\nRecord longer than maximum record length was found.\n" + wrong, "data.TXT"},
      {"a\tc\na\td\n", "data,out -1", 1, "\nData file has space compression.\n" + wrong, "data.TXT"},
      {"a\tc\na\td\n", "data,out -b,1", 0, "\n2 records", "data.TXT out.ISI"},
      {"ab\n\0cd\n"s, "data,out -1", 1, "position invalid for fixed length records.\n" + wrong, "data.TXT"},
      {"ab\ncdxef\n", "data,out -g=2,1", 1, "at byte offset: 3.\n", "data.TXT"},
      {"abcde", "data,out -f=2,1", 1, "\nRecord size not valid for file length found.\n", "data.TXT"},
      {"abcde", "data,out -f=65536,1", 1, "\nA record longer than 65533 bytes was found.\n", "data.TXT"},
      {"abc\n", "n,out -q,1", 1, "\nCan't open source file n.TXT\n", "data.TXT"},
      {"abc\n", "none,out -1", 1, "\nUnable to determine record length for fixed record length file: ", "data.TXT"},
      {"abc\n", "none,out,l10 -1", 0, "\n0 records", "data.TXT none.TXT out.ISI"},
      {"abc\n", "none,out -v,1", 1, "Null file must have record length", "data.TXT none.TXT"},
      {"abc\n", "data,no/out.isi -1", 1, "\nCan't create output file no/out.isi\n", "data.TXT"},
      {"abc\n", "data,data.TXT -1", 1, "\nThe Output file name can not be same as Input name.\n", "data.TXT"},
      {"abc\n", "data,out,,/none -1", 1, "\nOne of the temporary files could not be opened.\n", "data.TXT"},
      {"abc\n", "data,out -1" + std::string(530, ' '), 1, "an index can keep 527 characters", "data.TXT"},
      {"abc\n", "data,out -1,1", 1, "\nOverlapping keys are not allowed.\n", "data.TXT"},
      {"abc\n", "data -?", 1, "\ntarnvale isi -[i|r]\n", "data.TXT"},
      {"abc\n", "-d", 1, "\nThe command line is incomplete.  Use -? option.\n", "data.TXT"},
      {"abc\n", "-Llog data,out -1", 0, "", "data.TXT log out.ISI"},
      {"abc\n", "-l -d data,out -1", 0, "\n1 records", "data.TXT out.ISI"},
      {"abc\n", "-lno/log data,out -1", 0, "\n1 records", "data.TXT out.ISI"},
      {"abc\n", "-qlog data,out -1", 0, "", "data.TXT log out.ISI"},
      {"abc\n", "--version", 0, "tarnvale  Version ", "data.TXT"},
      {"abc\n", "--help", 0, "tarnvale isi -[i|r]\n", "data.TXT"},
      {"abc\n", "", 1, "\ntarnvale isi -[i|r]\n", "data.TXT"},
      {"abc\n", "12345:v,out -1", 1, "Unable to resolve name for source file 12345:v\n", "data.TXT"},
      {"abc\n", "data,12345:v -1", 1, "Unable to resolve name for output file 12345:v\n", "data.TXT"},
      {"abc\n", "12345:v -c", 1, "Unable to resolve name for source file 12345:v\n", "data.TXT"},
      {"abc\n", "12345:v -i", 1, "Unable to resolve name for output file 12345:v\n", "data.TXT"},
      {"abc\n", "-i" + name256 + " data,out -1", 1, "The file name of the -i option is too long", "data.TXT"},
      {"abc\n", name256 + "," + name256 + "," + name256, 1, "The command line is too long", "data.TXT"},
      {wide, little + "-t9 data,out -1-100", 1, "\nToo many sort trains\n", "data.TXT"},
      {wide, little + "-m4096 data,out -1-150", 1, "\nSort memory of 4096 bytes is too small: a key of 150 ",
       "data.TXT"}};
  for (const auto& [data, arguments, exitStatus, message, files] : cases) {
    const TestFolder folder;
    folder.write("data.TXT", data);
    const ProgramResult result = runProgram(folder, arguments, setVolume);
    EXPECT_EQ(result.exitStatus, exitStatus) << arguments;
    EXPECT_TRUE(message.empty() ? result.output.empty() : result.says(message)) << arguments << result.output;
    EXPECT_EQ(folder.names(), files) << arguments;
    EXPECT_EQ(folder.read("data.TXT"), data);
  }
}

TEST(Program, TellsInDebugModeWhatItDoesAndKeepsItsWorkFiles) {
  // data; arguments; among the messages, without the letters that make the name of a work file; files left
  const std::string cases[][4] = {
      {"abc\nabd\n", "data.txt,out.isi,,./tmp -e,u,p3=c,2,1",
       "\nINI file NOT USED!\nCommand line is:data.txt,out.isi,,./tmp -e,u,p3=c,2,1\n"
       "Temporary file path is:./tmp\nCreated ./tmp/dsort as temp file 1\nCreated ./tmp/dsort as temp file 2\n"
       "'QLX_NOPATH='\n  Col   Pos Char  Other\n    1     2       Key;  Upper Case;\n"
       "    2     1       Key;  Upper Case;\n    3     0  'c'  = match;\nOpened data.txt as input file\n"
       "Expected End of Record for data file is LF.\n\rCreated out.isi as output file\n"
       "Created out.ERR as error file\nIndexing data.txt into out.isi\n1 records, 0 deleted entries\nStart time = ",
       "data.txt out.isi tmp/dsort"},
      {"abc\n", "-imy data.txt,out.isi -1", "\nUsing INI file: my.ini\n", "data.txt out.isi tmp/dsort"},
      {"abcd\nb\naaaaaa\nabcd\nc\n", "data.txt,out.isi,l4 -1",
       "\n\nWriteTagRecord(2):\n1st Long Rec Length:7 at LFA:0x00000007 Max Allowed RecordLength:5!\n"
       "\nWriteTagRecord(1):\n1st Short Rec Length:2 at LFA:0x00000005 Max Allowed RecordLength:5!\n5 records",
       "data.txt tmp/dsort"},
      {"ab\n\0cd\n"s, "data.txt,out.isi -1", "\nCreateSubList(1): Variable record detected after deleted record!\n",
       "data.txt tmp/dsort"},
      {"a\tb\nab\n", "data.txt,out.isi,l4 -s,1",
       "\nCreateSubList(1):\n1st Long Rec Length:9 at LFA:0x00000000 Max Allowed RecordLength:5!\n",
       "data.txt tmp/dsort"},
      {std::string(300000, 'x') + "\n", "data.txt,out.isi,l9 -s,1", "1st Long Rec Length:300000 at LFA:0x00000000 ",
       "data.txt tmp/dsort tmp/dsort"}};
  const std::regex workFile("dsort[0-9A-Za-z]{6}");
  for (const auto& [data, arguments, message, files] : cases) {
    const TestFolder folder;
    folder.write("data.txt", data);
    const std::string output = runProgram(folder, "-d " + arguments).output;
    EXPECT_NE(std::regex_replace(output, workFile, "dsort").find(message), std::string::npos) << output;
    EXPECT_EQ(std::regex_replace(folder.names(), workFile, "dsort"), files) << arguments;
  }
}

TEST(Program, TakesItsSettingsFromTheIniFile) {
  const TestFolder folder;
  folder.write("data.dat", "abc\nabd\n");
  folder.write("qx.def", std::string(512, ' ') + ". \3dat\0\0idx\0\0"s);
  folder.write("my.ini", "[Environment]\nQLX_FNC=lower\nQLX_NOPATH=On\nQLX_SYSTEM=.\nQLX_TERM=qx\n");
  EXPECT_EQ(runProgram(folder, "-imy ./DATA,Out -1-3").exitStatus, 0);
  EXPECT_EQ(folder.names(), "data.dat my.ini out.idx qx.def");
  EXPECT_STREQ(&folder.read("out.idx")[240], "data.dat");
}

TEST(Program, NeverWritesOverItsDataFile) {
  const TestFolder folder;
  folder.write("data.txt", "abc\nabc\n");
  std::filesystem::create_symlink("data.txt", folder.path("soft.isi"));
  std::filesystem::create_hard_link(folder.path("data.txt"), folder.path("hard.isi"));
  std::filesystem::create_hard_link(folder.path("data.txt"), folder.path("other.ERR"));
  EXPECT_EQ(runProgram(folder, "data.txt,idx.isi -1").exitStatus, 0);
  for (const char* const arguments :
       {"data.txt,soft.isi -1", "data.txt,hard.isi -1", "data.txt,other.isi -e,1", "idx.isi,soft.isi -c"}) {
    const ProgramResult result = runProgram(folder, arguments);
    EXPECT_TRUE(result.says("name can not be same as Input name.") || result.says("Can't create output file other.ERR"))
        << result.output;
    EXPECT_EQ(folder.read("data.txt"), "abc\nabc\n");
    EXPECT_EQ(folder.names(), "data.txt hard.isi idx.isi other.ERR soft.isi");
  }
}

TEST(Program, WorksWithoutStandardDescriptors) {
  const TestFolder folder;
  folder.write("data.txt", "abc\nabd\n");
  ASSERT_EQ(runProgram(folder, "data.txt,out.isi -e,1-3").exitStatus, 0);
  const std::string index = folder.read("out.isi");
  for (const int last : {0, 1, 2}) {
    const auto closeDescriptors = [last] { ::close_range(0, static_cast<unsigned>(last), 0); };
    EXPECT_EQ(runProgram(folder, "data.txt,out.isi -e,1-3", closeDescriptors).exitStatus, 0);
    EXPECT_TRUE(folder.read("out.isi") == index) << last;
  }
}

TEST(Program, ListsEveryDroppedKeyWhereverItsBuffersEnd) {
  const TestFolder folder;
  std::string data;
  std::string errors;
  std::string told;
  for (unsigned i = 0; i < 9000; ++i) {
    data += "sixteen in a key\n";
    if (i == 0) continue;
    char line[66];  // of 65 bytes: the error file's buffer of 262,144 ends between CR and LF
    std::snprintf(line, sizeof line, "Duplicate Key ignored at:%16X Key:sixteen in a key \r\n", i * 17);
    errors += line;
    told += std::string(line, 63) + "\n";
  }
  folder.write("data.txt", data);
  ASSERT_EQ(runProgram(folder, "-llog data.txt,out.isi -n0,1-16").exitStatus, 0);
  EXPECT_TRUE(folder.read("out.ERR") == errors);
  EXPECT_NE(folder.read("log").find(told), std::string::npos);
}

TEST(Program, InterruptedInABuildLeavesOnlyTheErrorFileWithAllThatWasTold) {
  const TestFolder folder;
  std::string data;
  for (int i = 0; i < 5000; ++i) data += "same key\n";
  folder.write("data.txt", data);
  ProgramRun run(folder, "data.txt,out.isi -n,1-8");
  run.waitForOutput(60000);  // the pipe is almost full of duplicate keys: the program stands in the merge
  EXPECT_TRUE(folder.names().starts_with("data.txt out.ERR out.isi tmp/dsort"));
  run.interrupt();
  const ProgramResult result = run.finish();
  EXPECT_TRUE(result.exitStatus == 1 && result.output.ends_with("Processing aborted via user interrupt.\n"));
  EXPECT_EQ(folder.names(), "data.txt out.ERR");
  const std::string errors = folder.read("out.ERR");
  EXPECT_TRUE(errors.ends_with("Key:same key \r\n") && errors.size() % 49 == 0) << errors.size() << ": whole lines";
  EXPECT_GT(errors.size() / 49, result.output.size() / 49 - 20) << "told: as many, and some lines of another kind";
}

}  // namespace
}  // namespace tarnvale
