#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "support/held_lock.h"
#include "support/index_file.h"
#include "support/program_run.h"

namespace tarnvale {
namespace {

TEST(ExistingIndex, IsShownFromEveryHeaderAndLeftAlone) {
  const TestFolder folder;
  folder.write("data.txt", "abc\nabd\n");
  const std::string command = "data.txt,idx,-u,1-3>" + std::string(507, 'k');  // 527 characters: as many as are kept
  ASSERT_EQ(runProgram(folder, command).exitStatus, 0);
  std::string older(1024, '\0');
  older.replace(52, 2, "\x0F\xF0");
  older.replace(128, 10, "cust,,-1-5");
  folder.write("older.isi", older);
  folder.write("empty.isi", "SISI\x03\xFC" + std::string(2042, '\0'));
  folder.write("newer.isi", "SISI\x03\x04" + std::string(2042, '\0'));
  folder.write("text.isi", "no index");
  const std::tuple<const char*, int, std::string> cases[] = {
      {"idx -i,k", 0, "\ntarnvale " + command + "\n"},
      {"older.isi -i", 0, "\nConverting from 8.x to 9.x format\n\ntarnvale cust,,-1-5\n"},
      {"empty.isi -i", 1, "No key information available for empty.isi\n"},
      {"empty.isi -r", 1, "No key information available for empty.isi\n"},
      {"text.isi -r", 1, "Not a valid .isi file text.isi\n"},
      {"none -i", 1, "Can't open .isi file none.ISI\n"},
      {"text.isi -c", 1, "Not a valid .isi file structure for file: text.isi.\n"},
      {"idx/ISI,idx/ISI -c", 0, "Compacting idx.ISI into idx.ISI\n"},
      {"newer.isi -c", 1, "Invalid ISI version to compact file named:  newer.isi.\n"},
      {"none -c", 1, "Unable to open input ISI file for compact: none.ISI\n"}};
  for (const auto& [arguments, exitStatus, message] : cases) {
    const ProgramResult result = runProgram(folder, arguments);
    EXPECT_EQ(result.exitStatus, exitStatus) << arguments;
    EXPECT_TRUE(result.says(message)) << arguments << result.output;
    EXPECT_EQ(folder.names(), "data.txt empty.isi idx.ISI newer.isi older.isi text.isi");
  }
}

// An index with half filled nodes, equal keys and three nodes of deleted records, the last of them with one.
class Compaction : public testing::Test {
 protected:
  Compaction() {
    std::string data;
    for (int i = 0; i < 3000; ++i) data += std::to_string(1000 + i * 37 % 900) + "\n";
    folder.write("data.txt", data + std::string(253 * 5, '\0'));
    EXPECT_EQ(runProgram(folder, "data.txt,idx.isi -m50,1-4").exitStatus, 0);
    loose = folder.read("idx.isi");
    before = readIndex(loose, 15);
    EXPECT_EQ(before.faults, "");
  }

  TestFolder folder;
  std::string loose;
  IndexFile before;
};

TEST_F(Compaction, ThatFailsSaysWhyAndLeavesTheIndexAsItWas) {
  const auto damaged = [&](std::size_t offset, std::uint32_t value) {
    std::string bytes = loose;
    setNumberAt(bytes, offset, 4, value);
    return bytes;
  };
  std::string twice = loose;  // the second entry of the first leaf is the first one again
  twice.replace(3072 + 16, 16, loose.substr(3072, 16));
  const auto limitedTo = [](rlim_t size) {
    return [limit = rlimit{size, size}] { ::setrlimit(RLIMIT_FSIZE, &limit); };
  };
  const std::tuple<std::string, const char*, std::function<void()>> cases[] = {
      {damaged(1536 + 504, 3), "The deleted-record list is damaged in ISI file: idx.isi\n", {}},
      {twice, "damaged in ISI file: idx.isi\nWARNING!  INDEX failed reading input file idx.isi.\n", {}},
      {damaged(3072 + 4 * 16 + 8, 0), "The tree is damaged in ISI file: idx.isi\n", {}},   // an entry without a length
      {damaged(3072 + 4 * 16 + 12, 0), "The tree is damaged in ISI file: idx.isi\n", {}},  // a key that goes back
      {loose, "Unable to create backup file: idx.isi.bak\n", [] { ::link("idx.isi", "idx.isi.bak"); }},
      {loose, "Unable to create backup file: idx.isi.bak\n", [] { ::mkdir("idx.isi.bak", 0777); }},
      {loose, "Error writing the ISI backup file: idx.isi.bak\n", limitedTo(loose.size() - 1)},
      {loose, "Errno=27\nISI has been restored after fatal compact error for file: idx.isi\n", limitedTo(loose.size())},
      {loose, "file size truncated for ISI data file: data.txt\nUnable to execute ISI compact operation!\n",
       [] { ::truncate("data.txt", 0); }},
  };
  for (const auto& [index, message, prepare] : cases) {
    folder.write("idx.isi", index);
    const ProgramResult result = runProgram(folder, "idx.isi -c=1", prepare);
    EXPECT_TRUE(result.exitStatus == 1 && result.says(message)) << message << result.output;
    EXPECT_TRUE(folder.read("idx.isi") == index) << message;
    if (result.says("Unable to create backup")) std::filesystem::remove(folder.path("idx.isi.bak"));
    EXPECT_EQ(folder.names(), "data.txt idx.isi") << message;
  }
}

TEST(ExistingIndex, BehindALinkIsEmptiedByAFailedBuildAndIsNeverTheLog) {
  const TestFolder folder;
  folder.write("data.txt", "k\nk\n");
  folder.write("real.isi", "");
  ASSERT_EQ(::symlink("real.isi", folder.path("idx.isi").c_str()), 0);
  EXPECT_EQ(runProgram(folder, "data.txt,idx.isi -n,1").exitStatus, 1);
  EXPECT_EQ(folder.read("real.isi"), "");
  EXPECT_EQ(folder.names(), "data.txt idx.ERR real.isi");
  EXPECT_EQ(runProgram(folder, "-lreal.isi data.txt,real.isi -1").exitStatus, 1);
  EXPECT_NE(folder.read("real.isi").find("Can't create output file real.isi"), std::string::npos);
}

TEST_F(Compaction, InPlaceFillsTheNodesAndKeepsEntriesListAndByteOrder) {
  for (const std::string arguments : {"idx.isi -c", "idx.isi -c=0", "idx.isi -c=1"}) {
    const bool bigEndian = arguments.ends_with('0');
    setNumberAt(loose, 32, 4, bigEndian ? 7 : 0);
    folder.write("idx.isi", bigEndian ? otherByteOrder(loose) : loose);
    const ProgramResult result = runProgram(folder, arguments);
    EXPECT_TRUE(result.says("\n3000 records, 253 deleted entries\nStart time = ")) << result.output;
    EXPECT_EQ(folder.names(), "data.txt idx.isi");
    std::string bytes = folder.read("idx.isi");
    EXPECT_EQ(bytes[4] == '\xFC', bigEndian);
    if (bigEndian) bytes = otherByteOrder(bytes);
    const IndexFile after = readIndex(bytes);
    EXPECT_EQ(after.faults, "");
    EXPECT_TRUE(after.entries == before.entries && after.deleted == before.deleted);
    EXPECT_TRUE(numberAt(bytes, 1536 + 504, 4) == 4 && numberAt(bytes, 2048 + 504, 4) == 5) << "nodes of the list";
    EXPECT_EQ(numberAt(bytes, 32, 4), bigEndian ? 0U : 1U) << "the change counter";
    bytes.replace(32, 4, loose.substr(32, 4));
    EXPECT_EQ(bytes.substr(0, 1024), loose.substr(0, 1024)) << "the rest of the header stays";
  }
}

TEST_F(Compaction, IntoANewFileKeepsTheStoredCommandWhereItIsToldTo) {
  folder.write("new.isi", "something else, which goes");
  EXPECT_EQ(runProgram(folder, "idx.isi,new -c=0").exitStatus, 0);
  EXPECT_STREQ(&folder.read("new.isi")[496], "data.txt,idx.isi,-m50,1-4");
  EXPECT_TRUE(folder.read("idx.isi") == loose);
}

TEST_F(Compaction, DropsTheListWhereDeletedRecordsAreNotKept) {
  loose[6] |= 0x20;
  folder.write("idx.isi", loose);
  EXPECT_TRUE(runProgram(folder, "idx.isi -c").says("Deleted Data Record sectors purged from ISI!"));
  const IndexFile after = readIndex(folder.read("idx.isi"));
  EXPECT_TRUE(after.faults.empty() && after.deleted.empty() && after.entries == before.entries);
  const ProgramResult again = runProgram(folder, "-d idx.isi -c");
  EXPECT_FALSE(again.says("purged") || again.says("Rec Length")) << again.output;
}

TEST_F(Compaction, InterruptedWhileItWaitsForTheLockLeavesTheIndexAlone) {
  const HeldLock lock(folder.path("data.txt"), writeUpdate);
  for (const char* const arguments : {"idx.isi -c", "idx.isi,new.isi -c"}) {
    ProgramRun run(folder, arguments);
    run.waitForOutput(100);
    ::usleep(100000);
    run.interrupt();
    const ProgramResult result = run.finish();
    EXPECT_TRUE(result.exitStatus == 1 && result.says("Processing aborted via user interrupt.\n")) << result.output;
    EXPECT_TRUE(folder.read("idx.isi") == loose);
    EXPECT_EQ(folder.names(), "data.txt idx.isi");
  }
}

// Two entries of different trains are exchanged, as an application may leave them: the trains overlap.
TEST(ExistingIndex, HasItsEqualKeysInTheOrderOfTheirRecordsAfterACompaction) {
  const TestFolder folder;
  std::string data;
  for (int i = 0; i < 60000; ++i) data += "k\n";
  folder.write("data.txt", data);
  ASSERT_EQ(runProgram(folder, "data.txt,idx.isi -1").exitStatus, 0);
  std::string bytes = folder.read("idx.isi");
  const IndexFile before = readIndex(bytes);
  const std::size_t leaf = bytes.size() / 512 / 4 * 3 * 512;
  ASSERT_EQ(numberAt(bytes, leaf + 506, 2), 0U);
  std::swap_ranges(&bytes[2048], &bytes[2048 + 4], &bytes[leaf]);
  folder.write("idx.isi", bytes);
  EXPECT_EQ(runProgram(folder, "-m524288 idx.isi -c").exitStatus, 0);
  EXPECT_TRUE(readIndex(folder.read("idx.isi")).entries == before.entries);
}

}  // namespace
}  // namespace tarnvale
