#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>

#include "isi/backup.h"
#include "isi/data_file_lock.h"
#include "support/test_run.h"

namespace tarnvale {
namespace {

struct Lock {
  short type;
  off_t start;
  off_t length;
};
constexpr Lock readAccess = {F_RDLCK, 0x7FFFFFFFFFFFFFFF, 1};
constexpr Lock writeAccess = {F_WRLCK, 0x7FFFFFFFFFFFFFFF, 1};
constexpr Lock readUpdate = {F_RDLCK, 0x7FFFFFFFFFFFFFFD, 2};
constexpr Lock writeUpdate = {F_WRLCK, 0x7FFFFFFFFFFFFFFD, 2};
constexpr Lock writeLastOfUpdate = {F_WRLCK, 0x7FFFFFFFFFFFFFFE, 1};

// Starts a process that holds the lock for a time; 0 when it does not get it.
pid_t startHolder(const std::string& file, const Lock& lock, unsigned milliseconds) {
  int pipe[2] = {-1, -1};
  EXPECT_EQ(::pipe(pipe), 0);
  const pid_t holder = ::fork();
  char answer = 'n';
  if (holder == 0) {
    struct flock wanted {};
    wanted.l_type = lock.type;
    wanted.l_start = lock.start;
    wanted.l_len = lock.length;
    if (::fcntl(::open(file.c_str(), O_RDWR), F_SETLK, &wanted) == 0) answer = 'y';
    const ssize_t written = ::write(pipe[1], &answer, 1);
    ::usleep(milliseconds * 1000);
    ::_exit(written == 1 ? 0 : 1);
  }
  EXPECT_EQ(::read(pipe[0], &answer, 1), 1);
  for (const int fd : pipe) ::close(fd);
  return answer == 'y' ? holder : 0;
}

bool othersMayLock(const std::string& file, const Lock& lock) {
  const pid_t holder = startHolder(file, lock, 0);
  if (holder != 0) ::waitpid(holder, nullptr, 0);
  return holder != 0;
}

TEST(DataFileLock, KeepsCompactionsAndApplicationsApart) {
  const struct {
    std::optional<Lock> held;  // by an application
    bool locking;
    bool inPlace;
    StatusCode status;
    bool waits;
    std::string othersMay;  // read access, write access, read update, write update
  } cases[] = {{{}, false, true, 0, false, "nnyy"},
               {{}, true, true, 0, false, "ynnn"},
               {{}, true, false, 0, false, "ynyn"},
               {readAccess, false, true, -170, false, "ynyy"},
               {writeUpdate, false, true, 0, false, "nnnn"},
               {readAccess, true, true, 0, false, "ynnn"},
               {writeAccess, true, true, -169, false, "nnyy"},
               {readUpdate, true, false, 0, false, "ynyn"},
               {readUpdate, true, true, 0, true, "ynnn"},
               {writeUpdate, true, false, 0, true, "ynyn"}};
  for (const auto& c : cases) {
    TestRun run;
    const std::string data = run.folder.write("data", "bytes");
    run->compactLocking = c.locking;
    run->inPlace = c.inPlace;
    ASSERT_TRUE(run->isiDataFileName.assign(data));
    const pid_t holder = c.held ? startHolder(data, *c.held, c.waits ? 200 : 20000) : 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(lockDataFile(*run, 1), c.status);
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(c.waits ? waited.count() > 0.05 : waited.count() < 10) << waited.count();
    std::string othersMay;
    for (const Lock& lock : {readAccess, writeAccess, readUpdate, writeLastOfUpdate}) {
      othersMay += othersMayLock(data, lock) ? 'y' : 'n';
    }
    EXPECT_EQ(othersMay, c.othersMay);
    EXPECT_EQ(ReleaseCompactLock(*run->dataFileLock), 0);
    EXPECT_TRUE(c.held || othersMayLock(data, writeUpdate));
    if (c.held) ::kill(holder, SIGKILL);
  }
}

// An index opened to be compacted in place.
struct IndexInPlace : TestRun {
  std::string bytes = std::string(200000, 'x') + "end";

  explicit IndexInPlace(int access) {
    RunContext& run = **this;
    run.compactOptions = compact_option::compaction;
    EXPECT_TRUE(run.inputName.assign(folder.write("idx.isi", bytes)));
    run.inputFd = run.outputFd = ::open(run.inputName.c_str(), access);
  }
};

TEST(Backup, BringsTheIndexBackOrStays) {
  for (const int access : {O_RDWR, O_RDONLY}) {
    IndexInPlace run(access);
    ASSERT_EQ(makeBackup(*run), status::success);
    EXPECT_NE(run->compactOptions & compact_option::backupMade, 0U);
    EXPECT_TRUE(run.folder.read("idx.isi.bak") == run.bytes);
    run.folder.write("idx.isi", "half an index");
    const bool writable = access == O_RDWR;
    EXPECT_EQ(restoreBackup(*run), writable ? status::success : status::restoreFailed);
    EXPECT_TRUE(run.folder.read(writable ? "idx.isi" : "idx.isi.bak") == run.bytes);
    EXPECT_EQ(run.folder.names(), writable ? "idx.isi" : "idx.isi idx.isi.bak");
    EXPECT_NE(writable, run.messages().find("kept in the backup file: " + run.folder.path()) != std::string::npos);
  }
}

TEST(Backup, ThatCannotBeMadeLeavesTheIndexAlone) {
  for (const bool linked : {true, false}) {
    IndexInPlace run(O_RDWR);
    const std::string name = run.folder.path("idx.isi.bak");
    linked ? std::filesystem::create_hard_link(run.folder.path("idx.isi"), name)
           : static_cast<void>(std::filesystem::create_directory(name));
    EXPECT_EQ(makeBackup(*run), status::backupFailed);
    EXPECT_EQ(run->compactOptions & compact_option::backupMade, 0U);
    EXPECT_EQ(run.messages(), "Unable to create backup file: " + name + "\n");
    EXPECT_TRUE(run.folder.read("idx.isi") == run.bytes);
  }
}

}  // namespace
}  // namespace tarnvale
