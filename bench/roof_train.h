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
    const bool inOrder = isInOrder();
    if (!inOrder) sort();
    const auto entryAt = [&](std::size_t i) -> const Record& { return area[inOrder ? i : pairs[i].entry]; };
    if (count != 0) {
      shared = std::min(shared, sharedLength(entryAt(0).key, entryAt(count - 1).key, keyLength));
      if (!starts.empty()) shared = sharedLength(entryAt(0).key, last.key, shared);
    }
    const bool continues = !starts.empty() && count != 0 && sortsBefore(last, entryAt(0));
    if (!continues) {
      if (!starts.empty()) putEnd();
      starts.push_back(position);
    }
    if (inOrder) {
      out.put(area, count * sizeof(Record));
    } else {
      constexpr std::size_t ahead = 96;  // for each to have come; a record may lie across two lines of the cache
      for (std::size_t i = 0; i < count; ++i) {
        const Record& later = area[pairs[std::min(i + ahead, count - 1)].entry];
        __builtin_prefetch(&later);
        __builtin_prefetch(&later.key[keyLength - 1]);
        out.put(&area[pairs[i].entry], sizeof(Record));
      }
    }
    if (count != 0) last = entryAt(count - 1);
    position += count * sizeof(Record);
    count = 0;
  }

  // By 32 bits of the keys, from the lowest digit up; what is equal there, by comparing. The bits are those of four
  // bytes where enough of them differ, else some of eight bytes.
  void sort() {
    const auto [offset, differing] = findDifference();
    if (std::popcount(differing >> 32) >= 22) {
      sortBy([start = offset](const Record& entry) { return keyNumber<std::uint32_t>(entry, start); });
    } else {
      sortBy([start = offset, bits = Bits(differing)](const Record& entry) {
        return bits.gather(keyNumber<std::uint64_t>(entry, start));
      });
    }
  }

  template <typename NumberOf>
  void sortBy(NumberOf numberOf) {
    std::array<std::array<std::uint32_t, digitMask + 1>, 3> counts{};
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t number = numberOf(area[i]);
      pairs[i] = {number, static_cast<std::uint32_t>(i)};
      for (std::size_t digit = 0; digit < counts.size(); ++digit)
        ++counts[digit][number >> digit * digitBits & digitMask];
    }
    for (std::size_t digit = 0; digit < counts.size(); ++digit) distribute(digit * digitBits, counts[digit]);
    for (std::size_t start = 0, end = 0; start < count; start = end) {
      for (end = start + 1; end < count && pairs[end].number == pairs[start].number;) ++end;
      sortEqual(pairs + start, pairs + end);
    }
  }

  // Up to 32 of the bits in which eight bytes differ, side by side: of each byte those below its highest one.
  struct Bits {
    struct Part {
      std::uint64_t mask;
      unsigned move;  // to the right
    };
    std::array<Part, 8> parts{};
    std::size_t partCount = 0;

    explicit Bits(std::uint64_t differing) {
      unsigned left = std::min(bitCount(differing), 32U);
      for (unsigned low = 64; low > 0 && left > 0;) {
        low -= 8;
        const auto span = static_cast<unsigned>(std::bit_width(static_cast<std::uint8_t>(differing >> low)));
        const unsigned width = std::min(span, left);
        const unsigned begin = low + span - width;
        left -= width;
        if (width > 0) parts[partCount++] = {((std::uint64_t{1} << width) - 1) << begin, begin - left};
      }
    }
    // Of each byte those up to its highest one.
    static unsigned bitCount(std::uint64_t differing) {
      unsigned count = 0;
      for (; differing != 0; differing >>= 8)
        count += static_cast<unsigned>(std::bit_width(static_cast<std::uint8_t>(differing)));
      return count;
    }
    std::uint32_t gather(std::uint64_t bytes) const {
      std::uint64_t bits = 0;
      for (std::size_t i = 0; i < partCount; ++i) bits |= (bytes & parts[i].mask) >> parts[i].move;
      return static_cast<std::uint32_t>(bits);
    }
  };

  // The first key byte that differs, or the last eight bytes of the key, and the bits that differ from there on.
  std::pair<std::size_t, std::uint64_t> findDifference() const {
    std::uint64_t differing = 0;
    for (std::size_t offset = 0; offset < keyLength; offset += sizeof differing) {
      differing = differingFrom(offset);
      if (differing == 0) continue;
      const std::size_t begin = std::min(offset, keyLength - sizeof differing);
      const std::size_t first = begin + static_cast<std::size_t>(std::countl_zero(differing)) / 8;
      return {first, first == begin ? differing : differingFrom(first)};
    }
    return {0, 0};
  }

  std::uint64_t differingFrom(std::size_t offset) const {
    std::uint64_t differing = 0;
    const std::uint64_t first = keyNumber<std::uint64_t>(area[0], offset);
    for (std::size_t i = 1; i < count; ++i) differing |= keyNumber<std::uint64_t>(area[i], offset) ^ first;
    return differing;
  }

  bool isInOrder() const {
    for (std::size_t i = 1; i < count; ++i) {
      const auto before = keyNumber<std::uint64_t>(area[i - 1], 0);
      const auto number = keyNumber<std::uint64_t>(area[i], 0);
      if (number < before || (number == before && !sortsBefore(area[i - 1], area[i]))) return false;
    }
    return true;
  }

  static constexpr unsigned digitBits = 11;
  static constexpr std::uint32_t digitMask = (1U << digitBits) - 1;

  void distribute(std::size_t shift, std::array<std::uint32_t, digitMask + 1>& place) {
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
