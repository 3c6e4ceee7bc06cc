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
#include "support/test_parts.h"

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
  using enum LockResult;
  const struct {
    std::optional<Lock> held;  // by an application
    bool locking;
    bool inPlace;
    LockResult result;
    bool waits;
    std::string othersMay;  // read access, write access, read update, write update
  } cases[] = {{{}, false, true, granted, false, "nnyy"},
               {{}, true, true, granted, false, "ynnn"},
               {{}, true, false, granted, false, "ynyn"},
               {readAccess, false, true, accessRefused, false, "ynyy"},
               {writeUpdate, false, true, granted, false, "nnnn"},
               {readAccess, true, true, granted, false, "ynnn"},
               {writeAccess, true, true, accessRefused, false, "nnyy"},
               {readUpdate, true, false, granted, false, "ynyn"},
               {readUpdate, true, true, granted, true, "ynnn"},
               {writeUpdate, true, false, granted, true, "ynyn"}};
  for (const auto& c : cases) {
    const TestFolder folder;
    const std::string data = folder.write("data", "bytes");
    DataFileLock lock;
    ASSERT_TRUE(lock.name.assign(data));
    const pid_t holder = c.held ? startHolder(data, *c.held, c.waits ? 200 : 20000) : 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(c.locking ? lockShared(lock, c.inPlace) : lockExclusive(lock, 1), c.result);
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(c.waits ? waited.count() > 0.05 : waited.count() < 10) << waited.count();
    std::string othersMay;
    for (const Lock& other : {readAccess, writeAccess, readUpdate, writeLastOfUpdate}) {
      othersMay += othersMayLock(data, other) ? 'y' : 'n';
    }
    EXPECT_EQ(othersMay, c.othersMay);
    EXPECT_TRUE(releaseCompactLock(lock));
    EXPECT_TRUE(c.held || othersMayLock(data, writeUpdate));
    if (c.held) ::kill(holder, SIGKILL);
    closeDataFileLock(lock);
    EXPECT_TRUE(c.held || othersMayLock(data, writeAccess));
  }
}

// An index opened to be compacted in place.
struct IndexInPlace {
  TestFolder folder;
  TestMessages messages;
  TestFiles files;
  std::string bytes = std::string(200000, 'x') + "end";

  explicit IndexInPlace(int access) {
    TrackedFile& index = files[FileRole::input];
    EXPECT_TRUE(index.name.assign(folder.write("idx.isi", bytes)) && openRegular(index, access));
  }
  bool makeBackup() { return tarnvale::makeBackup(files, -1, messages); }
};

TEST(Backup, BringsTheIndexBackOrStays) {
  for (const int access : {O_RDWR, O_RDONLY}) {
    IndexInPlace run(access);
    ASSERT_TRUE(run.makeBackup());
    EXPECT_TRUE(run.folder.read("idx.isi.bak") == run.bytes);
    run.folder.write("idx.isi", "half an index");
    const bool writable = access == O_RDWR;
    EXPECT_EQ(restoreBackup(run.files, run.messages), writable);
    EXPECT_TRUE(run.folder.read(writable ? "idx.isi" : "idx.isi.bak") == run.bytes);
    EXPECT_EQ(run.folder.names(), writable ? "idx.isi" : "idx.isi idx.isi.bak");
    EXPECT_NE(writable, run.messages.text().find("kept in the backup file: " + run.folder.path()) != std::string::npos);
  }
}

TEST(Backup, ThatCannotBeMadeLeavesTheIndexAlone) {
  for (const bool linked : {true, false}) {
    IndexInPlace run(O_RDWR);
    const std::string name = run.folder.path("idx.isi.bak");
    linked ? std::filesystem::create_hard_link(run.folder.path("idx.isi"), name)
           : static_cast<void>(std::filesystem::create_directory(name));
    EXPECT_FALSE(run.makeBackup());
    EXPECT_EQ(run.messages.text(), "Unable to create backup file: " + name + "\n");
    EXPECT_TRUE(run.folder.read("idx.isi") == run.bytes);
  }
}

}  // namespace
}  // namespace tarnvale
