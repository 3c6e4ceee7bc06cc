// An index file read byte by byte, with none of the code under test.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnvale {

struct IndexEntry {
  std::uint32_t position;
  std::uint32_t duplicateNumber;
  std::uint32_t recordLength;
  std::string key;

  bool operator==(const IndexEntry&) const = default;
};

struct IndexFile {
  std::vector<IndexEntry> entries;     // in key order
  std::vector<std::uint32_t> deleted;  // in list order
  std::string faults;                  // of its shape: empty when every node is where, what and as full as it must be
};

/// Reads an index of either byte order. Nodes must hold `fillLimit` entries; 0 stands for as many as fit.
IndexFile readIndex(const std::string& bytes, std::uint32_t fillLimit = 0);

/// The little-endian number in a file's bytes.
std::uint32_t numberAt(const std::string& bytes, std::size_t offset, std::size_t width);
void setNumberAt(std::string& bytes, std::size_t offset, std::size_t width, std::uint32_t value);

/// The same index with every integer in the other byte order.
std::string otherByteOrder(std::string bytes);

/// A record of a data file as its index should know it.
struct DataRecord {
  std::uint64_t lfa;
  std::uint32_t length;
  std::string key;

  bool operator==(const DataRecord&) const = default;
};

/// The entries that an index of these records must have.
std::vector<IndexEntry> expectedEntries(std::vector<DataRecord> records, bool recordNumbers);

}  // namespace tarnvale
