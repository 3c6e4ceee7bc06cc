// What the program says, its exit statuses, and how it gets on with others.
#include <optional>

#include "check/check_run.h"
#include "check/position_set.h"
#include "support/held_lock.h"
#include "support/program_run.h"

namespace tarnvale {
namespace {

TEST(PositionSet, RemembersWhatItsMemoryHolds) {
  for (const std::uint64_t size : {std::uint64_t{100}, std::uint64_t{64} << 23, (std::uint64_t{64} << 23) + 1}) {
    PositionSet set(size);
    const auto last = static_cast<std::uint32_t>(size - 1);
    EXPECT_FALSE(set.add(last) || set.add(last + 1) || set.add(last - 1));
    EXPECT_EQ(set.add(last), size <= std::uint64_t{64} << 23);
  }
}

TEST(Check, SaysWhatItFoundAndWhetherItCouldLook) {
  const TestFolder folder;
  folder.write("data.TXT", "b\na\nb\n");
  EXPECT_EQ(run(folder, "$T data,idx -1; $T data,tmp,,none -1; mkdir folder.ISI").exitStatus, 0);
  const struct {
    const char* command;
    int exitStatus;
    const char* output;  // its beginning
  } cases[] = {
      {"$C idx", 0, "index is complete: 3 entries, 0 deleted records, 1 node on 1 level\n"},
      {"$C -s idx", 0, "index structure is right: 3 entries, 0 deleted records, 1 node on 1 level\n"},
      {"$C -q idx", 0, ""},
      {"$C idx >/dev/full", 2, ""},
      {"$C nothing", 2, "Can't open .isi file nothing.ISI\n"},
      {"$C folder", 2, "Can't open .isi file folder.ISI: it is no regular file\n"},
      {"$C data.TXT", 1, "data.TXT: its first 2048 bytes are not those of an index\nindex is wrong: 1 difference\n"},
      {"TMPDIR=none $C idx", 2, "The work files cannot be made in none\n"},
      {"$C", 2, "Usage: "},
      {"$C a b", 2, "Usage: "},
      {"$C -x idx", 2, ""},
      {"$C -d idx", 2, ""},
      {"$C -h", 0, "Usage: "},
      {"$C --help >/dev/full", 2, ""},
      {"$C --version", 0, "tarnvale-check  Version "},
      {"mv data.TXT away; $C -s idx", 0, "index structure is right"},
      {"$C idx", 2, "Can't open source file data.TXT\n"},
      {"$C -q idx", 2, ""},
      {"touch data.TXT; $C idx", 1, "the data file is not in the format that its index declares: it tells no"},
  };
  for (const auto& c : cases) {
    const CheckOutcome outcome = run(folder, c.command);
    EXPECT_EQ(outcome.exitStatus, c.exitStatus) << c.command << "\n" << outcome.output;
    EXPECT_TRUE(outcome.output.starts_with(c.output)) << c.command << "\n" << outcome.output;
  }
}

TEST(Check, FindsADataFileThatNoBuildWouldTake) {
  const struct {
    const char* command;
    std::string data;
    const char* later;  // the data file then
    const char* text;
  } cases[] = {
      {"$T data,idx -f=2,1", "abcd", "abc", "index declares: it ends inside a record\n"},
      {"$T data,idx -g=2,1", "ab\ncd\n", "ab\ncde", "index declares: LFA 3: the record does not end with the mark\n"},
      {"$T data,idx,L9 -v,1", "a\nb\n", "a\n0123456789\n",
       "the data file is not in the format that its index declares\n"},
      {"$T data,idx -v,1", "a\n", "", "the data file is empty: no record length is known\n"},
  };
  for (const auto& c : cases) {
    const TestFolder folder;
    folder.write("data.TXT", c.data);
    EXPECT_EQ(run(folder, std::string(c.command) + "; $C idx").exitStatus, 0) << c.command;
    folder.write("data.TXT", c.later);
    const CheckOutcome outcome = run(folder, "$C idx");
    EXPECT_EQ(outcome.exitStatus, 1) << c.command;
    EXPECT_TRUE(outcome.says(c.text)) << outcome.output;
    EXPECT_EQ(folder.names(), "data.TXT idx.ISI");
  }
}

TEST(Progress, IsShownAtATerminalAndWipedOut) {
  const TestFolder folder;
  std::string data;
  for (int i = 0; i < 10000; ++i) data += std::to_string(10000 + i * 7919 % 10000) + "\n";
  folder.write("data.TXT", data);
  const std::string little = "-m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 -m4096 ";
  const ProgramResult built = runAtTerminal(folder, little + "data,idx -1-5");
  for (const char* const text : {"Sort train 1 (", "Merge pass 1 ("}) {
    EXPECT_TRUE(built.says(text)) << text << "\n" << built.output;
  }
  const ProgramResult checked = runAtTerminal(folder, "idx", TARNVALE_CHECK_PROGRAM);
  EXPECT_TRUE(checked.says("scan: ") && checked.says("compare: 40%\r")) << checked.output;
  EXPECT_TRUE(checked.says("  \rindex is complete: 10000 entries, 0 deleted records, ")) << checked.output;
  const ProgramResult compacted = runAtTerminal(folder, "idx -c");
  EXPECT_TRUE(compacted.says("10000 records, 0 deleted entries")) << compacted.output;
}

TEST(Check, SharesTheDataFileWithApplicationsAlone) {
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1").exitStatus, 0);
  {
    const HeldLock application(data, readAccess);
    EXPECT_EQ(run(folder, "$C idx").exitStatus, 0);
  }
  const HeldLock compaction(data, writeAccess);
  for (const char* const command : {"$C idx", "$C -s idx"}) {
    const CheckOutcome outcome = run(folder, command);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.output, "The data file is in exclusive use: data.TXT\n");
  }
}

TEST(Check, NoticesABuildThatCameBetween) {
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1; cp idx.ISI first; $T data,idx -d,1; cp idx.ISI second").exitStatus, 0);
  std::optional<ProgramRun> check;
  {
    const HeldLock changing(data, writeUpdate);
    check.emplace(
        folder, "idx", [] { ::dup2(STDOUT_FILENO, STDERR_FILENO); }, TARNVALE_CHECK_PROGRAM);
    while (folder.names().find("tmp/") == std::string::npos) ::usleep(1000);  // then it knows the command
    folder.write("idx.ISI", folder.read("first"));
  }
  EXPECT_EQ(check->finish().output, "The index was built again meanwhile.\n");
}

}  // namespace
}  // namespace tarnvale
