// SortEntry: one item of the sort, the same in the sort area, in the work files and in the merge.
//
//   bytes 0-7   LFA, the byte offset of the record in the data file
//   bytes 8-9   length of the record in the data file, its end-of-record mark included
//   bytes 10-   the key
//
// The order of the whole system is the order of compareSortEntries: key bytes as unsigned bytes, equal keys by
// ascending LFA. An entry whose LFA is all ones is the end marker of a sort train.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "common/limits.h"
#include "format/byte_order.h"

namespace tarnvale {

struct SortEntryHead {
  Le64 lfa;           //  0
  Le16 recordLength;  //  8
};
static_assert(sizeof(SortEntryHead) == 10 && alignof(SortEntryHead) == 1);

inline constexpr std::size_t sortEntryHeadSize = sizeof(SortEntryHead);
inline constexpr std::size_t maxSortEntrySize = sortEntryHeadSize + maxKeyLength;
inline constexpr std::uint64_t endMarkerLfa = std::numeric_limits<std::uint64_t>::max();

/// Where a train of entries is put: `room` entries from `first` on, and room for an end marker behind them.
struct EntryArea {
  std::uint8_t* first;
  std::uint32_t room;
  std::uint32_t entrySize;  // bytes
};

[[nodiscard]] inline std::uint64_t entryLfa(const std::uint8_t* entry) {
  Le64 lfa;
  std::memcpy(&lfa, entry, sizeof lfa);
  return lfa;
}

[[nodiscard]] inline std::uint16_t entryRecordLength(const std::uint8_t* entry) {
  Le16 length;
  std::memcpy(&length, entry + offsetof(SortEntryHead, recordLength), sizeof length);
  return length;
}

[[nodiscard]] inline const std::uint8_t* entryKey(const std::uint8_t* entry) { return entry + sortEntryHeadSize; }

inline void setEntryHead(std::uint8_t* entry, std::uint64_t lfa, std::uint16_t recordLength) {
  SortEntryHead head;
  head.lfa = lfa;
  head.recordLength = recordLength;
  std::memcpy(entry, &head, sizeof head);
}

[[nodiscard]] inline bool isEndMarker(const std::uint8_t* entry) { return entryLfa(entry) == endMarkerLfa; }

/// Fills `entrySize` bytes with the end marker: 12 bytes 0xFF (as far as the entry reaches), then zero bytes.
inline void writeEndMarker(std::uint8_t* entry, std::size_t entrySize) {
  constexpr std::size_t onesLength = 12;
  std::memset(entry, 0, entrySize);
  std::memset(entry, 0xFF, entrySize < onesLength ? entrySize : onesLength);
}

/// 1 when a sorts after b, -1 when it sorts before b or is the same entry. Never 0.
[[nodiscard]] inline int compareSortEntries(const std::uint8_t* a, const std::uint8_t* b, std::size_t keyLength) {
  const int order = std::memcmp(entryKey(a), entryKey(b), keyLength);
  if (order != 0) return order > 0 ? 1 : -1;
  return entryLfa(a) > entryLfa(b) ? 1 : -1;
}

}  // namespace tarnvale
