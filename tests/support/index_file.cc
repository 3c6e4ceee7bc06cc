#include "support/index_file.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace tarnvale {

namespace {

constexpr std::uint32_t nowhere = 0xFFFFFFFF;

class Reader {
 public:
  Reader(const std::string& bytes, std::uint32_t fillLimit)
      : bytes_(bytes), keyLength_(numberAt(bytes, 10, 2)), entrySize_((keyLength_ + 15) / 4 * 4) {
    fillLimit_ = fillLimit != 0 ? fillLimit : 500 / entrySize_;
    pointerUnit_ = (numberAt(bytes, 7, 1) & 1) != 0 ? 512 : 1;
    seen_.resize(bytes.size() / 512);
  }

  IndexFile read() {
    if (!bytes_.starts_with("SISI\x03\xFC") || bytes_.size() % 512 != 0) fault("header or size", 0);
    readNode(1024, 17, true);
    readDeletedList();
    for (std::size_t i = 4; i < seen_.size(); ++i) {
      if (!seen_[i]) fault("unused node", i * 512);
    }
    return std::move(file_);
  }

 private:
  void fault(const char* what, std::uint64_t offset) {
    if (file_.faults.size() < 200) file_.faults += std::string(what) + " at " + std::to_string(offset) + "; ";
  }

  bool visit(std::uint64_t offset) {
    const bool good = offset % 512 == 0 && offset / 512 < seen_.size() && !seen_[offset / 512];
    if (good) seen_[offset / 512] = true;
    if (!good) fault("misplaced or repeated node", offset);
    return good;
  }

  // Entry number n of a tree stands as high as n can be divided by (fillLimit + 1).
  std::uint32_t levelOfLastEntry() const {
    std::uint32_t level = 0;
    for (std::size_t n = file_.entries.size(); n % (fillLimit_ + 1) == 0; n /= fillLimit_ + 1) ++level;
    return level;
  }

  void readNode(std::uint64_t node, std::uint32_t parentLevel, bool rightEdge) {
    if (!visit(node)) return;
    const std::uint32_t count = numberAt(bytes_, node + 500, 1);
    const std::uint32_t level = numberAt(bytes_, node + 506, 2);
    if (rightEdge ? level >= parentLevel : level + 1 != parentLevel) fault("wrong level", node);
    if (rightEdge ? count > fillLimit_ : count != fillLimit_) return fault("wrong count", node);
    for (std::uint64_t entry = node; entry < node + count * entrySize_; entry += entrySize_) {
      readChild(entry + 4, level, false);
      file_.entries.push_back({numberAt(bytes_, entry, 4), numberAt(bytes_, entry + 8, 2),
                               numberAt(bytes_, entry + 10, 2), bytes_.substr(entry + 12, keyLength_)});
      if (levelOfLastEntry() != level) fault("entry on a wrong level", entry);
    }
    readChild(node + 508, level, rightEdge);
  }

  void readChild(std::uint64_t field, std::uint32_t level, bool rightEdge) {
    const std::uint32_t pointer = numberAt(bytes_, field, 4);
    if (pointer == 0 ? level != 0 && !rightEdge : level == 0) return fault("missing child, or leaf with child", field);
    if (pointer != 0) readNode(pointer * pointerUnit_, level, rightEdge);
  }

  void readDeletedList() {
    for (std::uint32_t pointer = numberAt(bytes_, 16, 4); pointer != nowhere;) {
      const std::uint64_t node = pointer * pointerUnit_;
      if (!visit(node)) return;
      const std::uint32_t count = numberAt(bytes_, node + 508, 2);
      if (numberAt(bytes_, node + 510, 2) != 0xFDF9 || count < 1 || count > 126) return fault("bad list node", node);
      for (std::uint32_t i = 0; i < count; ++i) file_.deleted.push_back(numberAt(bytes_, node + std::size_t{i} * 4, 4));
      pointer = numberAt(bytes_, node + 504, 4);
    }
  }

  const std::string& bytes_;
  std::uint32_t keyLength_;
  std::uint32_t entrySize_;
  std::uint32_t fillLimit_;
  std::uint64_t pointerUnit_;
  std::vector<bool> seen_;
  IndexFile file_;
};

}  // namespace

IndexFile readIndex(const std::string& bytes, std::uint32_t fillLimit) {
  if (bytes.size() < 2048) return {{}, {}, "too short"};
  if (bytes[4] == '\xFC') return readIndex(otherByteOrder(bytes), fillLimit);
  return Reader(bytes, fillLimit).read();
}

std::uint32_t numberAt(const std::string& bytes, std::size_t offset, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(bytes[offset + i]);
  return value;
}

void setNumberAt(std::string& bytes, std::size_t offset, std::size_t width, std::uint32_t value) {
  for (std::size_t i = 0; i < width; ++i) bytes[offset + i] = static_cast<char>(value >> (8 * i));
}

std::string otherByteOrder(std::string bytes) {
  const bool bigEndian = bytes[4] == '\xFC';
  const auto turn = [&](std::size_t offset, std::size_t width) {  // the value of the field that it turns
    const std::uint32_t before = numberAt(bytes, offset, width);
    std::reverse(&bytes[offset], &bytes[offset] + width);
    return bigEndian ? numberAt(bytes, offset, width) : before;
  };
  for (const std::size_t offset : {4U, 8U}) turn(offset, 2);
  const std::size_t entrySize = (turn(10, 2) + 15) / 4 * 4;
  const std::uint64_t unit = (numberAt(bytes, 7, 1) & 1) != 0 ? 512 : 1;
  turn(12, 4);
  std::uint32_t listPointer = turn(16, 4);
  for (std::size_t offset = 20; offset < 52; offset += 4) turn(offset, 4);
  for (std::size_t offset = 64; offset < 104; offset += 4) turn(offset, 2);
  for (std::size_t offset = 112; offset < 240 && numberAt(bytes, offset + 2, 2) != 0; offset += 2) {
    turn(offset, 2);
    turn(offset += 2, 2);
  }
  std::set<std::size_t> listNodes = {1536};
  while (listPointer != nowhere) {
    const std::size_t node = listPointer * unit;
    listNodes.insert(node);
    const std::uint32_t count = turn(node + 508, 2);
    for (std::size_t i = 0; i < count; ++i) turn(node + i * 4, 4);
    listPointer = turn(node + 504, 4);
  }
  for (std::size_t node = 1024; node < bytes.size(); node += 512) {
    if (listNodes.contains(node)) continue;
    turn(node + 506, 2);
    turn(node + 508, 4);
    for (std::size_t i = 0; i < numberAt(bytes, node + 500, 1); ++i) {
      for (const std::size_t offset : {0U, 4U}) turn(node + i * entrySize + offset, 4);
      for (const std::size_t offset : {8U, 10U}) turn(node + i * entrySize + offset, 2);
    }
  }
  return bytes;
}

std::vector<IndexEntry> expectedEntries(std::vector<DataRecord> records, bool recordNumbers) {
  std::ranges::sort(records, {}, [](const DataRecord& record) { return std::tie(record.key, record.lfa); });
  std::vector<IndexEntry> entries;
  for (const DataRecord& record : records) {
    const std::uint64_t position = recordNumbers ? record.lfa / record.length : record.lfa;
    const bool duplicate = !entries.empty() && entries.back().key == record.key;
    const std::uint32_t number = duplicate ? (entries.back().duplicateNumber + 1) % 65536 : 0;
    entries.push_back({static_cast<std::uint32_t>(position), number, record.length, record.key});
  }
  return entries;
}

}  // namespace tarnvale
