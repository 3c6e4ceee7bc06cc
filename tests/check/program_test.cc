// What the program says, its exit statuses, and how it gets on with others.
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include "check/check_run.h"

namespace tarnvale {
namespace {

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

// The output of a command whose standard streams are a terminal.
std::string atTerminal(const TestFolder& folder, const char* command) {
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    if (::chdir(folder.path().c_str()) == 0) ::execl(TARNVALE_CHECK_PROGRAM, "tarnvale-check", command, nullptr);
    ::_exit(127);
  }
  std::string output;
  char piece[256];
  for (ssize_t count = 0; (count = ::read(terminal, piece, sizeof piece)) > 0;) {
    output.append(piece, static_cast<std::size_t>(count));
  }
  ::close(terminal);
  ::waitpid(child, nullptr, 0);
  return output;
}

TEST(Check, ShowsItsProgressAtATerminalAndWipesItOut) {
  const TestFolder folder;
  std::string data;
  for (int i = 0; i < 10000; ++i) data += std::to_string(10000 + i) + "\n";
  folder.write("data.TXT", data);
  EXPECT_EQ(run(folder, "$T data,idx -1-5").exitStatus, 0);
  const std::string output = atTerminal(folder, "idx");
  EXPECT_NE(output.find("scan: "), std::string::npos) << output;
  EXPECT_NE(output.find("compare: 40%\r"), std::string::npos) << output;
  EXPECT_NE(output.find("  \rindex is complete: 10000 entries, 0 deleted records, "), std::string::npos) << output;
}

// A lock of this process on the data file, as long as it lives.
class Lock {
 public:
  Lock(const std::string& path, short type, off_t offset, off_t length) : fd_(::open(path.c_str(), O_RDWR)) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_start = offset;
    lock.l_len = length;
    EXPECT_EQ(::fcntl(fd_, F_SETLK, &lock), 0);
  }
  ~Lock() { ::close(fd_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

class SharedData : public testing::Test {
 protected:
  SharedData() : data_(folder_.write("data.TXT", "b\na\n")) { EXPECT_EQ(run(folder_, "$T data,idx -1").exitStatus, 0); }

  static constexpr off_t accessByte = 0x7FFFFFFFFFFFFFFF;
  static constexpr off_t updateBytes = 0x7FFFFFFFFFFFFFFD;
  TestFolder folder_;
  std::string data_;
};

TEST_F(SharedData, WithApplicationsAlone) {
  {
    const Lock application(data_, F_RDLCK, accessByte, 1);
    EXPECT_EQ(run(folder_, "$C idx").exitStatus, 0);
  }
  const Lock compaction(data_, F_WRLCK, accessByte, 1);
  for (const char* const command : {"$C idx", "$C -s idx"}) {
    const CheckOutcome outcome = run(folder_, command);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.output, "The data file is in exclusive use: data.TXT\n");
  }
}

TEST_F(SharedData, AndNoWorkFilesLeftBehindWhenInterrupted) {
  const Lock changing(data_, F_WRLCK, updateBytes, 2);  // the check waits for its end
  const std::string filesThere = "while [ $(ls tmp | wc -l) -lt 2 ]; do sleep 0.01; done; ";
  for (const char* const signal : {"INT", "TERM", "HUP"}) {
    const CheckOutcome outcome = run(folder_, "$C idx & " + filesThere + "kill -" + signal + " $!; wait $!");
    EXPECT_EQ(outcome.exitStatus, 2) << "an interrupted check says nothing of the index";
    EXPECT_EQ(outcome.output, "Processing aborted via user interrupt.\n");
    EXPECT_EQ(folder_.names(), "data.TXT idx.ISI");
    EXPECT_EQ(run(folder_, "ls tmp").output, "");
  }
}

}  // namespace
}  // namespace tarnvale
