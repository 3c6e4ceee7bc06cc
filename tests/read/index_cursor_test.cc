// The cursor, from any key and in both directions.
#include "isi/index_cursor.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <memory>
#include <optional>
#include <random>

#include "read/read_support.h"

namespace tarnvale {
namespace {

// `count` records, each key three times, of the even numbers from 0 on.
std::string makeIndex(const TestFolder& folder, int count, const std::string& options) {
  std::string data;
  for (int i = 0; i < count; ++i) data += std::to_string(100000 + i * 77 % count / 3 * 2) + "\n";
  folder.write("data.txt", data);
  EXPECT_EQ(runProgram(folder, "data.txt,out.isi,L6 -" + options + "1-6").exitStatus, 0);
  return folder.read("out.isi");
}

struct OpenIndex {
  explicit OpenIndex(const std::string& bytes) : fd(::memfd_create("index", 0)) {
    EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    opened = openIndex(handle, fd);
  }
  ~OpenIndex() { ::close(fd); }

  IsiHandle handle;
  int fd;
  IndexResult opened;
};

IndexEntry entryOf(const IndexCursor& cursor) {
  const IsiEntryHead& head = entryHead(cursor.entry);
  return {head.position,
          head.duplicateNumber,
          head.recordLength,
          {reinterpret_cast<const char*>(isiEntryKey(cursor.entry)), cursor.handle->keyLength}};
}

TEST(IndexCursor, StepsBothWaysFromEveryKeyInBothByteOrders) {
  std::mt19937 random(5);
  const TestFolder folder;
  const auto cursor = std::make_unique<IndexCursor>();
  for (const char* const options : {"", "v,", "m20,"}) {
    for (const int count : {0, 1, 3, 21, 22, 441, 1500}) {
      const std::string bytes = makeIndex(folder, count, options);
      const Entries entries = readIndex(bytes, *options == 'm' ? 5 : 0).entries;
      ASSERT_EQ(entries.size(), static_cast<std::size_t>(count));
      for (const std::string& twin : {bytes, otherByteOrder(bytes)}) {
        const OpenIndex index(twin);
        ASSERT_EQ(index.opened, IndexResult::done);
        for (int turn = 0; turn < 60; ++turn) {
          const std::string key =
              std::to_string(100000 + static_cast<int>(random() % 1100) - 20).substr(0, random() % 7);
          const bool behind = turn % 2 == 0;
          ASSERT_EQ((behind ? seekBehind : seekBefore)(*cursor, index.handle, key), IndexResult::done);
          // A place is an entry, or the gap before one.
          std::size_t place = 0;
          while (place < entries.size() && entries[place].key.compare(0, key.size(), key) < (behind ? 1 : 0)) ++place;
          bool inGap = true;
          for (int step = 0; step < 200; ++step) {
            const bool forwards = random() % 16 < 8U + static_cast<unsigned>(turn % 3) * 4U;
            const std::size_t next = place + (inGap ? 0 : 1);
            const bool there = forwards ? next < entries.size() : place > 0;
            const IndexResult result = forwards ? nextEntry(*cursor) : previousEntry(*cursor);
            ASSERT_EQ(result, there ? IndexResult::done : IndexResult::endOfIndex) << key << " " << count;
            place = forwards ? next : place - (there ? 1 : 0);
            inGap = !there;
            ASSERT_TRUE(!there || entryOf(*cursor) == entries[place]) << key << " " << count;
          }
        }
      }
    }
  }
}

// Where the damage can be seen on the path it is an error; otherwise the answer is that of the tree as it is.
TEST(IndexCursor, FindsTheRightEntryOrTheDamageWhenAnyByteOfATreeIsWrong) {
  const TestFolder folder;
  const auto cursor = std::make_unique<IndexCursor>();
  const std::string good = makeIndex(folder, 120, "m20,");
  std::size_t errors = 0;
  for (std::size_t at = 1024; at < good.size(); ++at) {
    std::string bytes = good;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << at * 5 % 8));
    const Entries entries = readIndex(bytes, 5).entries;
    const bool searchable = std::ranges::is_sorted(entries, {}, &IndexEntry::key);
    const OpenIndex index(at % 2 == 1 ? otherByteOrder(bytes) : bytes);  // odd: no count is wrong then
    ASSERT_EQ(index.opened, IndexResult::done);
    for (const std::string key : {"", "100021", "10004", "100099"}) {
      IndexResult result = seekBefore(*cursor, index.handle, key);
      if (result == IndexResult::done) result = nextEntry(*cursor);
      const auto right = std::ranges::find_if(entries, [&](const auto& entry) { return entry.key >= key; });
      if (result == IndexResult::done && searchable && entries.size() == 120) {
        EXPECT_TRUE(right != entries.end() && entryOf(*cursor) == *right) << at << " " << key;
      }
      EXPECT_TRUE(result != IndexResult::done || entryOf(*cursor).key >= key) << at;
      std::size_t walked = 0;
      for (; result == IndexResult::done && walked <= 120; ++walked) result = previousEntry(*cursor);
      EXPECT_LE(walked, 120U) << at;
      errors += result == IndexResult::endOfIndex ? 0 : 1;
    }
  }
  EXPECT_GT(errors, good.size() / 16);
}

}  // namespace
}  // namespace tarnvale
