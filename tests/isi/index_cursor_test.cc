#include "isi/index_cursor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>

#include "isi/command_text.h"
#include "support/index_file.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

using enum IndexResult;

// An index of `count` records, `alike` of each key.
std::string makeIndex(std::size_t count, const std::string& options, std::size_t deleted = 0, std::size_t alike = 2) {
  TestBuild run;
  std::string data;
  for (std::size_t i = 0; i < count; ++i) data += std::to_string(1000000000 + i / alike * 7919 % 10007) + "\n";
  EXPECT_EQ(run.build(data + std::string(deleted * 11, '\0'), options, "l10"), status::success);
  return run.index();
}

// An index file, opened and walked.
struct Walk {
  TestFolder folder;
  int fd;
  std::unique_ptr<IsiHandle> handle = std::make_unique<IsiHandle>();
  std::unique_ptr<IndexCursor> cursor = std::make_unique<IndexCursor>();
  IndexResult opened;
  std::vector<IndexEntry> entries;

  explicit Walk(const std::string& bytes)
      : fd(::open(folder.write("idx", bytes).c_str(), O_RDWR)), opened(openIndex(*handle, fd)) {}
  ~Walk() { ::close(fd); }

  IndexResult toEnd() {
    startCursor(*cursor, *handle);
    IndexResult result = opened;
    while (result == done && (result = nextEntry(*cursor)) == done) {
      const IsiEntryHead& head = entryHead(cursor->entry);
      const auto* const key = reinterpret_cast<const char*>(isiEntryKey(cursor->entry));
      entries.push_back({head.position, head.duplicateNumber, head.recordLength, {key, handle->keyLength}});
    }
    return result;
  }
};

TEST(IndexCursor, DeliversAllEntriesInKeyOrderInBothByteOrders) {
  for (const char* const options : {"1-10", "v,1-10"}) {
    for (const std::size_t count : {0U, 1U, 20U, 21U, 22U, 441U, 463U, 9300U}) {
      const std::string bytes = makeIndex(count, options);
      for (const std::string& twin : {bytes, otherByteOrder(bytes)}) {
        Walk walk(twin);
        EXPECT_EQ(walk.toEnd(), endOfIndex);
        EXPECT_EQ(nextEntry(*walk.cursor), endOfIndex) << "and stays at the end";
        EXPECT_EQ(walk.entries.size(), count);
        EXPECT_TRUE(walk.entries == readIndex(bytes).entries) << count;
      }
    }
  }
}

TEST(IndexCursor, GoesOnWhereDuplicateNumbersStartAgainAtZero) {
  const std::string bytes = makeIndex(70000, "1-10", 0, 70000);
  std::vector<DataRecord> records;
  for (std::uint64_t i = 0; i < 70000; ++i) records.push_back({i * 11, 11, "1000000000"});
  Walk walk(bytes);
  EXPECT_EQ(walk.toEnd(), endOfIndex);
  EXPECT_TRUE(walk.entries == expectedEntries(records, true));
  EXPECT_TRUE(walk.entries[65535].duplicateNumber == 65535 && walk.entries[65536].duplicateNumber == 0);
  EXPECT_EQ(readIndex(bytes).faults, "");
}

TEST(IsiHandle, ReadsAndWritesEveryRecordInTheByteOrderOfTheFile) {
  std::string bytes = makeIndex(100, "p2=0,p3#x,10-7,2-1,5", 130);
  for (std::uint32_t field = 20; field < 48; field += 4) setNumberAt(bytes, field, 4, 0x01020300 + field);
  for (const std::string& twin : {bytes, otherByteOrder(bytes)}) {
    Walk walk(twin);
    const IsiHeader& header = walk.handle->area.header;
    EXPECT_TRUE(header.keySegments[0].length == 0xFFFE && header.selectTests[1].position == 3);
    EXPECT_EQ(header.keySegments[2].length, 1) << "behind a segment of length 0 nothing is turned";
    EXPECT_EQ(header.dataExtent, 230U);
    EXPECT_EQ(std::memcmp(&header.recordFlags, &bytes[6], 2042), 0) << "all but magic and version word is turned";
    walk.folder.write("idx", std::string(2048, '?') + twin.substr(2048));
    EXPECT_EQ(writeHeader(*walk.handle, walk.fd), done);
    EXPECT_EQ(writeTreeNode(*walk.handle, walk.fd, 1024, walk.handle->area.root), done);
    EXPECT_EQ(writeDeletedNode(*walk.handle, walk.fd, 1536), done);
    EXPECT_EQ(readDeletedNode(*walk.handle, walk.handle->area.deletedNode.next), done);
    EXPECT_EQ(writeDeletedNode(*walk.handle, walk.fd, 2048), done);
    EXPECT_TRUE(walk.folder.read("idx") == twin);
    walk.handle->area.deletedNode.count = 127;
    EXPECT_EQ(checkDeletedNode(*walk.handle), deletedNodeCountWrong);
    walk.handle->area.deletedNode.signature[1] = 0;
    EXPECT_EQ(checkDeletedNode(*walk.handle), deletedNodeUnsigned);
  }
}

TEST(IsiHandle, ReadsTheHeaderAreaAgainWhetherTheChangeCounterMovedOrNot) {
  Walk walk(makeIndex(100, "1-10"));
  const std::string other = makeIndex(30, "1-5");  // with the same counter, as after two compactions
  walk.folder.write("idx", other);
  EXPECT_EQ(checkSpinCounter(*walk.handle), done);
  EXPECT_EQ(walk.toEnd(), endOfIndex);
  EXPECT_TRUE(walk.entries == readIndex(other).entries);
  walk.folder.write("idx", other.substr(0, 35));
  EXPECT_EQ(checkSpinCounter(*walk.handle), notAnIndex);
}

// Makes a tree of equal keys that has few nodes and more entries than anybody can wait for.
void linkAllToNext(std::string& bytes) {
  for (std::size_t node = 2048; node < 12 * 512; node += 512) {
    for (std::size_t entry = node; entry < node + 480; entry += 24) {
      setNumberAt(bytes, entry + 4, 4, node < 11 * 512 ? static_cast<std::uint32_t>(node + 512) : 0);
      setNumberAt(bytes, entry + 8, 2, 0);
      bytes.replace(entry + 12, 10, "0000000000");
    }
  }
}

// Leaves are the nodes 4 to 24; the inner node 25 refers to them. The root refers to it and to its later neighbour.
TEST(IndexCursor, EndsWithAnErrorOnADamagedFile) {
  const std::string good = makeIndex(463, "v,1-10");
  constexpr std::size_t leaf = 2048;
  constexpr std::size_t inner = 25 * 512;
  const struct {
    const char* damage;
    std::function<void(std::string&)> make;
    IndexResult result;
  } cases[] = {{"short header area", [](auto& b) { b.resize(2047); }, notAnIndex},
               {"no magic", [](auto& b) { b[3] = 's'; }, notAnIndex},
               {"other version", [](auto& b) { b[5] = 3; }, versionUnknown},
               {"key length 0", [](auto& b) { setNumberAt(b, 10, 2, 0); }, notAnIndex},
               {"key length 151", [](auto& b) { setNumberAt(b, 10, 2, 151); }, notAnIndex},
               {"child between two nodes", [](auto& b) { setNumberAt(b, 1024 + 4, 4, 3000); }, nodeMisplaced},
               {"too many entries in the root", [](auto& b) { b[1024 + 500] = 21; }, inconsistent},
               {"empty root with a child", [](auto& b) { b[1024 + 500] = 0; }, inconsistent},
               {"too many entries in a leaf", [](auto& b) { b[leaf + 500] = '\xFF'; }, inconsistent},
               {"empty leaf", [](auto& b) { b[leaf + 500] = 0; }, inconsistent},
               {"child in the header area", [](auto& b) { setNumberAt(b, inner + 4, 4, 1536); }, inconsistent},
               {"child beyond the end", [](auto& b) { setNumberAt(b, inner + 4, 4, 0xFFFFFE00); }, nodeMissing},
               {"cut file", [](auto& b) { b.resize(inner + 100); }, nodeMissing},
               {"node below itself", [](auto& b) { setNumberAt(b, inner + 4, 4, inner); }, treeTooDeep},
               {"node referred to twice", [](auto& b) { setNumberAt(b, inner + 24 + 4, 4, leaf); }, inconsistent},
               {"nodes that refer to the next only", linkAllToNext, inconsistent},
               {"leaf with a right child", [](auto& b) { setNumberAt(b, leaf + 508, 4, leaf); }, inconsistent},
               {"keys out of order", [](auto& b) { b[leaf + 24 + 12] = '0'; }, inconsistent}};
  for (const auto& c : cases) {
    std::string bytes = good;
    c.make(bytes);
    EXPECT_EQ(Walk(bytes).toEnd(), c.result) << c.damage;
  }
}

TEST(IndexCursor, ComesToAnEndOnAnyBytes) {
  const std::string good = makeIndex(500, "v,1-10");
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::string bytes = round % 2 == 0 ? good : otherByteOrder(good);
    for (int i = 0; i < 5; ++i) {
      const std::size_t node = random() % (bytes.size() / 512) * 512;
      bytes[node + (i % 2 == 0 ? 500 + random() % 12 : random() % 512)] = static_cast<char>(random());
    }
    Walk walk(bytes);
    EXPECT_NE(walk.toEnd(), done);
    EXPECT_LE(walk.entries.size(), bytes.size() / 16);
  }
}

TEST(StoredCommand, GetsTheNewIndexNameAndKeepsTheRest) {
  const std::string rest(520, 'x');
  const struct {
    std::string stored;
    const char* own;
    StatusCode status;
    std::string result;
  } cases[] = {{"cust,old.isi,l80 -1,5,7", "idx,new,-c", 0, "cust,new,l80 -1,5,7"},
               {"cust,,-1", "idx,/a/new.isi,,/tmp -c", 0, "cust,/a/new.isi,-1"},
               {"a,bb," + rest, "idx,new,-c", 0, "a,new," + rest},
               {"a,bb," + rest, "idx,newer,-c", -166, "a,bb," + rest},
               {"cust,old.isi", "idx,new,-c", -164, "cust,old.isi"},
               {"cust,,-1", "idx,new", -165, "cust,,-1"}};
  for (const auto& c : cases) {
    std::string field = c.stored + std::string(528 - c.stored.size(), '\0');
    EXPECT_EQ(replaceIndexName(field, c.own), c.status) << c.stored;
    EXPECT_EQ(field, c.result + std::string(528 - c.result.size(), '\0'));
  }
}

}  // namespace
}  // namespace tarnvale
