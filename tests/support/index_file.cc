#include "support/index_file.h"

#include <algorithm>
#include <tuple>

namespace tarnvale {

namespace {

constexpr std::uint32_t nowhere = 0xFFFFFFFF;
constexpr std::uint32_t listNodeMark = 0xFDF9;  // of either byte order

class Reader {
 public:
  Reader(const std::string& bytes, std::uint32_t fillLimit) : bytes_(bytes) {
    if (fillLimit != 0) fillLimit_ = fillLimit;
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
    if (!good) fault("misplaced or repeated node", offset);
    if (good) seen_[offset / 512] = true;
    return good;
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
      if (numberAt(bytes_, node + 510, 2) != listNodeMark || count < 1 || count > 126)
        return fault("bad list node", node);
      for (std::uint32_t i = 0; i < count; ++i) file_.deleted.push_back(numberAt(bytes_, node + std::size_t{i} * 4, 4));
      pointer = numberAt(bytes_, node + 504, 4);
    }
  }

  const std::string& bytes_;
  const std::uint32_t keyLength_ = numberAt(bytes_, 10, 2);
  const std::uint32_t entrySize_ = (keyLength_ + 15) / 4 * 4;
  const std::uint64_t pointerUnit_ = (numberAt(bytes_, 7, 1) & 1) != 0 ? 512 : 1;
  std::uint32_t fillLimit_ = 500 / entrySize_;
  std::vector<bool> seen_ = std::vector<bool>(bytes_.size() / 512);
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
  const auto turnAll = [&](std::size_t begin, std::size_t end, std::size_t width) {
    for (std::size_t offset = begin; offset < end; offset += width) turn(offset, width);
  };
  for (const std::size_t offset : {4U, 8U}) turn(offset, 2);
  const std::size_t entrySize = (turn(10, 2) + 15) / 4 * 4;
  const bool hasList = turn(16, 4) != nowhere;
  turn(12, 4);
  turnAll(20, 52, 4);
  for (std::size_t condition = 64; condition < 104; condition += 4) turn(condition, 2);
  for (std::size_t part = 112; part < 240 && numberAt(bytes, part + 2, 2) != 0; part += 4) turnAll(part, part + 4, 2);
  for (std::size_t node = 1024; node < bytes.size(); node += 512) {
    if (node == 1536 && !hasList) continue;  // a placeholder
    if (numberAt(bytes, node + 510, 2) == listNodeMark) {
      turnAll(node, node + turn(node + 508, 2) * std::size_t{4}, 4);
      turn(node + 504, 4);
      continue;
    }
    turn(node + 506, 2);
    turn(node + 508, 4);
    const std::size_t end = node + numberAt(bytes, node + 500, 1) * entrySize;
    for (std::size_t entry = node; entry < end; entry += entrySize) {
      turnAll(entry, entry + 8, 4);
      turnAll(entry + 8, entry + 12, 2);
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
