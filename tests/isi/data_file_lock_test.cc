#include "isi/data_file_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <optional>
#include <thread>

#include "support/held_lock.h"
#include "support/test_folder.h"

namespace tarnvale {
namespace {

constexpr Lock writeLastOfUpdate = {F_WRLCK, 0x7FFFFFFFFFFFFFFE, 1};

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
  struct sigaction wake {};
  wake.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &wake, nullptr);
  for (const auto& c : cases) {
    const TestFolder folder;
    const std::string data = folder.write("data", "bytes");
    const int probe = ::open(data.c_str(), O_RDWR);  // stays open: a close would give up the locks of this process
    const auto othersMay = [&](const Lock& lock) { return askLock(probe, F_OFD_GETLK, lock).l_type == F_UNLCK; };
    HeldLock application(data, c.held.value_or(Lock{F_UNLCK, 0, 0}));
    std::atomic<bool> ended = false;
    std::thread later([&] {
      if (!c.waits) return;
      ::usleep(100000);
      ended = true;  // before the lock is given up: whoever waits for it finds this
      application.giveUp();
    });
    DataFileLock lock;
    EXPECT_TRUE(lock.name.assign(data));
    ::ualarm(20000, 20000);  // signals end no wait
    EXPECT_EQ(c.locking ? lockShared(lock, c.inPlace) : lockExclusive(lock, 1), c.result);
    ::ualarm(0, 0);
    EXPECT_EQ(ended, c.waits);
    later.join();
    std::string may;
    for (const Lock& other : {readAccess, writeAccess, readUpdate, writeLastOfUpdate}) {
      may += othersMay(other) ? 'y' : 'n';
    }
    EXPECT_EQ(may, c.othersMay);
    application.giveUp();
    EXPECT_TRUE(releaseCompactLock(lock) && othersMay(writeUpdate));
    closeDataFileLock(lock);
    EXPECT_TRUE(othersMay(writeAccess));
    ::close(probe);
  }
}

}  // namespace
}  // namespace tarnvale
