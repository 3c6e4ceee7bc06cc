// The first half of the roof: entries are collected in an area, sorted when it is full, and written as a train.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "files.h"

namespace bench {

// What is sorted: a record's key and where the record stands. Its length is known to the compiler, which turns each
// copy and comparison into a few instructions.
template <std::size_t keyLength>
struct [[gnu::packed]] Entry {
  std::uint64_t lfa;  // all ones: the end of a train
  std::uint16_t length;
  std::uint8_t key[keyLength];
};

template <std::size_t keyLength>
bool sortsBefore(const Entry<keyLength>& a, const Entry<keyLength>& b) {
  const int order = std::memcmp(a.key, b.key, keyLength);
  return order != 0 ? order < 0 : a.lfa < b.lfa;
}

/// How many bytes at the start two keys share.
inline std::size_t sharedLength(const std::uint8_t* a, const std::uint8_t* b, std::size_t limit) {
  return static_cast<std::size_t>(std::mismatch(a, a + limit, b).first - a);
}

/// The key bytes from `offset` on, or the last ones of the key, as a number that orders as they do.
template <typename Number, std::size_t keyLength>
Number keyNumber(const Entry<keyLength>& entry, std::size_t offset) {
  static_assert(std::endian::native == std::endian::little && keyLength >= sizeof(Number));
  Number bytes;
  std::memcpy(&bytes, entry.key + std::min(offset, keyLength - sizeof bytes), sizeof bytes);
  return sizeof bytes == 8 ? __builtin_bswap64(bytes) : __builtin_bswap32(static_cast<std::uint32_t>(bytes));
}

template <std::size_t keyLength>
struct Trains {
  using Record = Entry<keyLength>;

  Record* area;
  std::size_t capacity = 0;  // entries of a train, and one for its end
  std::size_t count = 0;
  Writer out{openWorkFile()};
  std::vector<std::uint64_t> starts;  // in the work file
  std::uint64_t position = 0;         // of the work file's end
  std::size_t shared = keyLength;     // bytes at the start that all keys have in common
  Record last{};                      // written

  explicit Trains(std::size_t areaSize)
      : area(static_cast<Record*>(largeMemory(areaSize))),
        capacity(areaSize / (sizeof(Record) + 4) - 1),
        pairs(static_cast<Pair*>(largeMemory(capacity * sizeof(Pair)))),
        otherPairs(static_cast<Pair*>(largeMemory(capacity * sizeof(Pair)))) {}

  /// The place for the next entry. It counts once `accept` is called.
  Record& next() { return area[count]; }
  void accept() {
    if (++count == capacity - 1) writeTrain();
  }
  void finish() {
    if (count != 0 || starts.empty()) writeTrain();
    putEnd();
    out.flush();
  }

 private:
  struct Pair {
    std::uint32_t number;
    std::uint32_t entry;
  };
  Pair* pairs;
  Pair* otherPairs;

  void putEnd() {
    Record end{};
    end.lfa = ~std::uint64_t{0};
    out.put(&end, sizeof end);
    position += sizeof end;
  }

  // A train that continues the one before it becomes part of it.
  void writeTrain() {
    sort();
    const bool continues = !starts.empty() && count != 0 && sortsBefore(last, area[pairs[0].entry]);
    if (!continues) {
      if (!starts.empty()) putEnd();
      starts.push_back(position);
    }
    constexpr std::size_t ahead = 12;
    for (std::size_t i = 0; i < count; ++i) {
      __builtin_prefetch(&area[pairs[std::min(i + ahead, count - 1)].entry]);
      out.put(&area[pairs[i].entry], sizeof(Record));
    }
    if (count != 0) last = area[pairs[count - 1].entry];
    position += count * sizeof(Record);
    count = 0;
  }

  // By the four bytes that follow the shared ones, from the lowest digit up; what is equal there, by comparing.
  void sort() {
    const std::size_t sharedHere = sharedByAll();
    if (count != 0) {
      const std::size_t sharedBefore = starts.empty() ? keyLength : sharedLength(area[0].key, last.key, keyLength);
      shared = std::min({shared, sharedHere, sharedBefore});
    }
    if (isInOrder()) {
      for (std::size_t i = 0; i < count; ++i) pairs[i].entry = static_cast<std::uint32_t>(i);
      return;
    }
    for (std::size_t i = 0; i < count; ++i)
      pairs[i] = {keyNumber<std::uint32_t>(area[i], sharedHere), static_cast<std::uint32_t>(i)};
    for (unsigned shift = 0; shift < 32; shift += digitBits) distribute(shift);
    for (std::size_t start = 0, end = 0; start < count; start = end) {
      for (end = start + 1; end < count && pairs[end].number == pairs[start].number;) ++end;
      sortEqual(pairs + start, pairs + end);
    }
  }

  // Bytes at the start that all keys of the train share: eight at a time, until some differ.
  std::size_t sharedByAll() const {
    for (std::size_t offset = 0; offset < keyLength; offset += sizeof(std::uint64_t)) {
      std::uint64_t differing = 0;
      for (std::size_t i = 1; i < count; ++i)
        differing |= keyNumber<std::uint64_t>(area[i], offset) ^ keyNumber<std::uint64_t>(area[0], offset);
      if (differing != 0) {
        return std::min(offset, keyLength - sizeof differing) +
               static_cast<std::size_t>(std::countl_zero(differing)) / 8;
      }
    }
    return keyLength;
  }

  bool isInOrder() const {
    for (std::size_t i = 1; i < count; ++i)
      if (!sortsBefore(area[i - 1], area[i])) return false;
    return true;
  }

  static constexpr unsigned digitBits = 11;
  static constexpr std::uint32_t digitMask = (1U << digitBits) - 1;

  void distribute(unsigned shift) {
    std::array<std::uint32_t, digitMask + 1> place{};
    for (std::size_t i = 0; i < count; ++i) ++place[pairs[i].number >> shift & digitMask];
    if (std::ranges::find(place, count) != place.end()) return;
    std::uint32_t sum = 0;
    for (std::uint32_t& start : place) sum += std::exchange(start, sum);
    for (std::size_t i = 0; i < count; ++i) otherPairs[place[pairs[i].number >> shift & digitMask]++] = pairs[i];
    std::swap(pairs, otherPairs);
  }

  void sortEqual(Pair* begin, Pair* end) {
    if (end - begin < 2) return;
    const auto before = [&](const Pair& a, const Pair& b) { return sortsBefore(area[a.entry], area[b.entry]); };
    if (!std::is_sorted(begin, end, before)) std::sort(begin, end, before);
  }
};

}  // namespace bench
