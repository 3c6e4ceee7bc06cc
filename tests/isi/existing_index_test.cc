#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <random>

#include "isi/command_text.h"
#include "isi/data_file_lock.h"
#include "isi/index_cursor.h"
#include "support/held_lock.h"
#include "support/index_file.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using enum IndexResult;

struct MadeIndex {
  std::string bytes;
  std::vector<IndexEntry> entries;  // that it should have
};

// An index of `count` records, `alike` of each key.
MadeIndex makeIndex(std::size_t count, const std::string& options, std::size_t alike = 2) {
  std::string data;
  std::vector<DataRecord> records;
  for (std::size_t i = 0; i < count; ++i) {
    records.push_back({data.size(), 11, std::to_string(1000000000 + i / alike * 7919 % 10007)});
    data += records.back().key + "\n";
  }
  TestBuild run;
  EXPECT_EQ(run.build(data, options, "l10"), status::success);
  return {run.index(), expectedEntries(records, run.settings.recordNumberAddressing)};
}

// An index file, opened and walked.
struct Walk {
  TestFolder folder;
  int fd;
  IsiHandle handle;
  IndexCursor cursor;
  IndexResult opened;
  std::vector<IndexEntry> entries;

  explicit Walk(const std::string& bytes)
      : fd(::open(folder.write("idx", bytes).c_str(), O_RDWR)), opened(openIndex(handle, fd)) {}
  ~Walk() { ::close(fd); }

  IndexResult toEnd() {
    startCursor(cursor, handle);
    IndexResult result = opened;
    while (result == done && (result = nextEntry(cursor)) == done) entries.push_back(entry());
    return result;
  }
  [[nodiscard]] IndexEntry entry() const {
    const IsiEntryHead& head = entryHead(cursor.entry);
    const auto* const key = reinterpret_cast<const char*>(isiEntryKey(cursor.entry));
    return {head.position, head.duplicateNumber, head.recordLength, {key, handle.keyLength}};
  }
};

// Twenty entries to a node, or four: with some of the numbers a node or a whole level has just become full.
TEST(IndexCursor, StepsBothWaysFromEveryKeyOfAFullTreeInBothByteOrders) {
  std::mt19937 random(5);
  for (const char* const options : {"1-10", "v,1-10", "m20,1-10"}) {
    for (const std::size_t count : {0U, 1U, 3U, 20U, 21U, 22U, 440U, 441U, 442U, 462U, 1500U, 9261U}) {
      const auto [bytes, entries] = makeIndex(count, options, 3);
      const IndexFile index = readIndex(bytes, *options == 'm' ? 4 : 0);
      EXPECT_EQ(index.faults, "") << options << count;
      ASSERT_TRUE(index.entries == entries) << options << count;
      for (const std::string& twin : {bytes, otherByteOrder(bytes)}) {
        Walk walk(twin);
        for (int turn = 0; turn < 60; ++turn) {
          const std::string key = std::to_string(1000000000 + random() % 10100).substr(0, random() % 11);
          const bool behind = turn % 2 == 0;
          ASSERT_EQ((behind ? seekBehind : seekBefore)(walk.cursor, walk.handle, key), done);
          // A place is an entry, or the gap before one.
          std::size_t place = 0;
          while (place < count && entries[place].key.compare(0, key.size(), key) < (behind ? 1 : 0)) ++place;
          bool inGap = true;
          for (int step = 0; step < 200; ++step) {
            const bool forwards = random() % 16 < 8U + static_cast<unsigned>(turn % 3) * 4U;
            const std::size_t next = place + (inGap ? 0 : 1);
            const bool there = forwards ? next < count : place > 0;
            const IndexResult result = forwards ? nextEntry(walk.cursor) : previousEntry(walk.cursor);
            ASSERT_EQ(result, there ? done : endOfIndex) << key << " " << count;
            place = forwards ? next : place - (there ? 1 : 0);
            inGap = !there;
            ASSERT_TRUE(!there || walk.entry() == entries[place]) << key << " " << count;
          }
        }
      }
    }
  }
}

TEST(IndexCursor, GoesOnWhereDuplicateNumbersStartAgainAtZero) {
  const auto [bytes, entries] = makeIndex(70000, "1-10", 70000);
  Walk walk(bytes);
  EXPECT_EQ(walk.toEnd(), endOfIndex);
  EXPECT_TRUE(walk.entries == entries);
  // Whoever removes entries leaves a gap, but half of all numbers is a step back.
  for (const auto& [number, result] : {std::pair{0x7FFFU, endOfIndex}, {0x8000U, inconsistent}}) {
    std::string two = makeIndex(2, "1-10").bytes;
    setNumberAt(two, 1024 + 24 + 8, 2, number);
    EXPECT_EQ(Walk(two).toEnd(), result);
  }
}

// Leaves are the nodes 4 to 24; the inner node 25 refers to them. The root refers to it and to its later neighbour.
TEST(IndexCursor, EndsWithAnErrorOnADamagedFile) {
  const std::string good = makeIndex(463, "v,1-10").bytes;
  constexpr std::size_t leaf = 2048;
  constexpr std::size_t inner = 25 * 512;
  const std::tuple<const char*, std::function<void(std::string&)>, IndexResult> cases[] = {
      {"short header area", [](auto& b) { b.resize(2047); }, notAnIndex},
      {"no magic", [](auto& b) { b[3] = 's'; }, notAnIndex},
      {"other version", [](auto& b) { b[5] = 3; }, versionUnknown},
      {"key length 0", [](auto& b) { setNumberAt(b, 10, 2, 0); }, notAnIndex},
      {"key length 151", [](auto& b) { setNumberAt(b, 10, 2, 151); }, notAnIndex},
      {"child between two nodes", [](auto& b) { setNumberAt(b, 1024 + 4, 4, 3000); }, nodeMisplaced},
      {"too many entries in the root", [](auto& b) { b[1024 + 500] = 21; }, inconsistent},
      {"empty root with a child", [](auto& b) { b[1024 + 500] = 0; }, inconsistent},
      {"too many entries in a leaf", [](auto& b) { b[leaf + 500] = '\xFF'; }, inconsistent},
      {"empty leaf", [](auto& b) { b[leaf + 500] = 0; }, inconsistent},
      {"child in the header area", [](auto& b) { setNumberAt(b.replace(512, 512, b, leaf, 512), inner + 4, 4, 512); },
       inconsistent},
      {"child beyond the end", [](auto& b) { setNumberAt(b, inner + 4, 4, 0xFFFFFE00); }, nodeMissing},
      {"cut file", [](auto& b) { b.resize(inner + 100); }, nodeMissing},
      {"node below itself", [](auto& b) { setNumberAt(b, inner + 4, 4, inner); }, treeTooDeep},
      {"node referred to twice", [](auto& b) { setNumberAt(b, inner + 24 + 4, 4, leaf); }, inconsistent},
      {"leaf with a right child", [](auto& b) { setNumberAt(b, leaf + 508, 4, leaf); }, inconsistent},
      {"keys out of order", [](auto& b) { b[leaf + 24 + 12] = '0'; }, inconsistent}};
  for (const auto& [what, damage, result] : cases) {
    std::string bytes = good;
    damage(bytes);
    EXPECT_EQ(Walk(bytes).toEnd(), result) << what;
  }
}

TEST(StoredCommand, GetsTheNewIndexNameAndKeepsTheRest) {
  const std::string rest(520, 'x');
  const std::tuple<std::string, const char*, StatusCode, std::string> cases[] = {
      {"cust,old.isi,l80 -1,5,7", "idx,new,-c", 0, "cust,new,l80 -1,5,7"},
      {"cust,,-1", "idx,/a/new.isi,,/tmp -c", 0, "cust,/a/new.isi,-1"},
      {"a,bb," + rest, "idx,new,-c", 0, "a,new," + rest},
      {"a,bb," + rest, "idx,newer,-c", -166, "a,bb," + rest},
      {"cust,old.isi", "idx,new,-c", -164, "cust,old.isi"},
      {"cust,,-1", "idx,new", -165, "cust,,-1"}};
  for (const auto& [stored, own, status, result] : cases) {
    std::string field = stored + std::string(528 - stored.size(), '\0');
    EXPECT_EQ(replaceIndexName(field, own), status) << stored;
    EXPECT_EQ(field, result + std::string(528 - result.size(), '\0'));
  }
}

TEST(DataFileLock, KeepsCompactionsAndApplicationsApart) {
  using enum LockResult;
  constexpr Lock noLock = {F_UNLCK, 0, 0};
  constexpr Lock writeLastOfUpdate = {F_WRLCK, 0x7FFFFFFFFFFFFFFE, 1};
  const struct {
    Lock held;  // by an application
    bool locking;
    bool inPlace;
    LockResult result;
    std::string othersMay;  // read access, write access, read update, write update
  } cases[] = {{noLock, false, true, granted, "nnyy"},           {noLock, true, true, granted, "ynnn"},
               {noLock, true, false, granted, "ynyn"},           {readAccess, false, true, accessRefused, "ynyy"},
               {writeUpdate, false, true, granted, "nnnn"},      {readAccess, true, true, granted, "ynnn"},
               {writeAccess, true, true, accessRefused, "nnyy"}, {readUpdate, true, false, granted, "ynyn"}};
  for (const auto& c : cases) {
    const TestFolder folder;
    const std::string data = folder.write("data", "bytes");
    const int probe = ::open(data.c_str(), O_RDWR);  // stays open: a close would give up the locks of this process
    const auto othersMay = [&](const Lock& lock) { return askLock(probe, F_OFD_GETLK, lock).l_type == F_UNLCK; };
    const HeldLock application(data, c.held);
    DataFileLock lock;
    EXPECT_TRUE(lock.name.assign(data));
    EXPECT_EQ(c.locking ? lockShared(lock, c.inPlace) : lockExclusive(lock, 1), c.result);
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

// In the fifth signal the application gives its lock up.
TEST(DataFileLock, IsWaitedForWhateverSignalsCome) {
  const TestFolder folder;
  DataFileLock lock;
  EXPECT_TRUE(lock.name.assign(folder.write("data", "bytes")));
  static const HeldLock application(lock.name.c_str(), readUpdate);
  static int signals = 0;
  struct sigaction wake {};
  wake.sa_handler = [](int) {
    if (++signals == 5) application.giveUp();
  };
  ::sigaction(SIGALRM, &wake, nullptr);
  ::ualarm(20000, 20000);
  EXPECT_EQ(lockShared(lock, true), LockResult::granted);
  ::ualarm(0, 0);
  EXPECT_GE(signals, 5);
  closeDataFileLock(lock);
}

}  // namespace
}  // namespace tarnvale
