// Holds an index against its data file, so that a fast and wrong run shows.
//
//   verify INDEX DATA FORMAT...        FORMAT as in record_format.h; "bare": the header is not looked at
//
// The data is read once, in order, and so is the index; for each record that belongs there a number made of its
// position, length and key is added up on both sides. A missing, doubled or altered entry changes the sum, whatever
// the order; the order is checked entry by entry, and the tree node by node.
#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "files.h"
#include "record_format.h"

namespace {

using bench::Bytes;
using bench::fail;
using bench::MappedFile;
using bench::RecordFormat;

constexpr std::size_t nodeSize = 512;
constexpr std::size_t rootOffset = 1024;
constexpr std::size_t firstNodeOffset = 2048;
constexpr std::size_t entriesSize = 500;  // of a node: the entries stand before byte 500
constexpr std::uint16_t maxLevel = 15;

template <typename Number>
Number load(const std::uint8_t* bytes) {
  static_assert(std::endian::native == std::endian::little);
  Number value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

std::uint64_t entrySum(std::uint64_t position, std::uint16_t length, Bytes key) {
  constexpr std::uint64_t factor = 0x9E3779B97F4A7C15;
  std::uint64_t sum = (position + 1) * factor ^ length;
  for (; !key.empty(); key = key.subspan(std::min<std::size_t>(key.size(), 8))) {
    std::uint64_t part = 0;
    std::memcpy(&part, key.data(), std::min<std::size_t>(key.size(), 8));
    sum = std::rotl(sum ^ part, 29) * factor;
  }
  return (sum ^ sum >> 32) * factor;
}

struct Totals {
  std::uint64_t records = 0;  // of the data, whether they count or not
  std::uint64_t entries = 0;
  std::uint64_t sum = 0;
};

Totals readData(const MappedFile& data, const RecordFormat& format) {
  Totals totals;
  std::unordered_set<std::string> keysSeen;
  std::uint8_t key[bench::maxKeyLength];
  Bytes rest(data.data, data.size);
  while (!rest.empty()) {
    const auto lfa = static_cast<std::uint64_t>(rest.data() - data.data);
    const Bytes record = takeRecord(format, rest);
    if (record.empty()) fail("the data ends within a record");
    ++totals.records;
    const Bytes columns = record.first(record.size() - format.mark.size());
    if (!isSelected(format, columns)) continue;
    extractKey(format, columns, key);
    if (format.firstOfEqualKeys && !keysSeen.emplace(key, key + format.keyLength).second) continue;
    ++totals.entries;
    totals.sum += entrySum(format.byNumber ? lfa / record.size() : lfa, static_cast<std::uint16_t>(record.size()),
                           {key, format.keyLength});
  }
  return totals;
}

// A walk through the tree in key order.
struct Walk {
  MappedFile index;
  const RecordFormat& format;
  std::size_t entrySize = 0;
  std::size_t fullNode = 0;  // entries
  std::uint64_t nodes = 0;
  Totals totals;
  const std::uint8_t* before = nullptr;  // the entry walked last
};

void checkOrder(Walk& walk, const std::uint8_t* entry) {
  const auto duplicate = load<std::uint16_t>(entry + 8);
  std::uint16_t expected = 0;
  if (walk.before != nullptr) {
    const int order = std::memcmp(walk.before + 12, entry + 12, walk.format.keyLength);
    if (order > 0) fail("a key is smaller than the one before it");
    if (order == 0) {
      if (load<std::uint32_t>(walk.before) >= load<std::uint32_t>(entry)) fail("equal keys are not in record order");
      expected = static_cast<std::uint16_t>(load<std::uint16_t>(walk.before + 8) + 1);
    }
  }
  if (duplicate != expected) fail("a wrong number among equal keys");
  walk.before = entry;
}

void walkEntry(Walk& walk, const std::uint8_t* entry) {
  checkOrder(walk, entry);
  ++walk.totals.entries;
  walk.totals.sum +=
      entrySum(load<std::uint32_t>(entry), load<std::uint16_t>(entry + 10), {entry + 12, walk.format.keyLength});
}

void walkNode(Walk& walk, std::size_t offset, int levelAbove, bool rightEdge);

// Only the right edge of a tree may lack a node, or have one more than a level lower.
void walkChild(Walk& walk, std::uint32_t pointer, int level, bool rightEdge) {
  const std::size_t offset = walk.format.byNumber ? std::size_t{pointer} * nodeSize : pointer;
  if (level == 0 ? offset != 0 : offset == 0 && !rightEdge) fail("a child where none may be, or none where one must");
  if (offset != 0) walkNode(walk, offset, level, rightEdge);
}

void walkNode(Walk& walk, std::size_t offset, int levelAbove, bool rightEdge) {
  if (offset % nodeSize != 0 || offset + nodeSize > walk.index.size) fail("a pointer leads nowhere");
  const std::uint8_t* const node = walk.index.data + offset;
  const std::size_t count = node[entriesSize];
  const int level = load<std::uint16_t>(node + 506);
  ++walk.nodes;
  if (level >= levelAbove || (level != levelAbove - 1 && !rightEdge)) fail("a node of the wrong level");
  if (count > walk.fullNode || (count != walk.fullNode && !rightEdge)) fail("a node that is not full, or overfull");
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* const entry = node + i * walk.entrySize;
    walkChild(walk, load<std::uint32_t>(entry + 4), level, false);
    walkEntry(walk, entry);
  }
  walkChild(walk, load<std::uint32_t>(node + 508), level, rightEdge);
}

void checkHeader(const MappedFile& index, const RecordFormat& format, const Totals& data) {
  const std::uint8_t* const header = index.data;
  if (std::memcmp(header, "SISI\x03\xFC", 6) != 0) fail("not the header of an index");
  if (load<std::uint16_t>(header + 10) != format.keyLength) fail("a wrong key length in the header");
  if (load<std::uint32_t>(header + 44) != static_cast<std::uint32_t>(data.records)) fail("a wrong count of records");
}

}  // namespace

int main(int argumentCount, char** arguments) {
  std::span<char* const> words(arguments + 1, static_cast<std::size_t>(argumentCount - 1));
  if (words.size() < 3) fail("usage: verify INDEX DATA FORMAT...");
  const bool bare = std::string_view(words.back()) == "bare";
  const RecordFormat format = bench::readFormat(words.subspan(2, words.size() - 2 - (bare ? 1 : 0)));
  const MappedFile index = bench::mapFile(words[0]);
  const Totals data = readData(bench::mapFile(words[1]), format);
  if (index.size < firstNodeOffset || index.size % nodeSize != 0) fail("not the size of an index");
  if (!bare) checkHeader(index, format, data);
  const std::size_t entrySize = (format.keyLength + 15) / 4 * 4;
  Walk walk{index, format, entrySize, entriesSize / entrySize, 0, {}, nullptr};
  walkNode(walk, rootOffset, maxLevel + 1, true);
  if (walk.nodes != 1 + (index.size - firstNodeOffset) / nodeSize) fail("nodes that the tree does not lead to");
  if (walk.totals.entries != data.entries) {
    fail(std::to_string(walk.totals.entries) + " entries where " + std::to_string(data.entries) + " should be");
  }
  if (walk.totals.sum != data.sum) fail("as many entries as should be, but not the right ones");
  std::printf("%" PRIu64 " entries, sum %016" PRIx64 "\n", data.entries, data.sum);
}
