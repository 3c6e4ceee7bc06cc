// The one idea: most of the order is in a few bits. Bytes that all keys share are passed over, the bits in which the
// following bytes differ are gathered into one number, next to the number of the entry, and these pairs are distributed
// by 11 bits at a time. Entries with the same bits are a small group, which the chosen method finishes by comparing
// them, or a large one, which goes through the same again: its keys share more bytes.
//
//   keys   CUST-0007  CUST-0042  CUST-0031     shared: "CUST-00"
//   bits        0 7        4 2        3 1      the digits differ in 3 bits each: 6 bits a key
//
// The pairs take two areas of 1 MiB. A train of more entries than fit there is first divided in place, by as many bits
// as its entry numbers leave free in a slot.
#include "sort/train_sort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "common/sort_entry.h"
#include "sort/key_prefix.h"

namespace tarnvale {

namespace {

constexpr std::size_t maxPairs = 131072;  // two areas of 1 MiB: part of the 4 MiB a run takes besides its buffers
constexpr std::size_t smallGroup = 24;    // up to here comparing entries is faster than distributing them
constexpr unsigned digitBits = 11;        // the counters of a digit, 8 KiB, stay in the first-level cache
constexpr std::uint32_t digitValues = 1U << digitBits;
constexpr unsigned spareBits = 5;  // bits taken beyond those that number the entries: most groups end at one
constexpr std::uint32_t groupStart = 1U << 31;  // in a slot: its bits differ from the slot before

struct Pair {
  std::uint32_t bits;  // of the key, in key order
  std::uint32_t slot;
};
std::array<Pair, maxPairs> pairArea;
std::array<Pair, maxPairs> otherPairArea;

using Slots = std::span<std::uint32_t>;

// Which bits of the keys a step looks at, out of 8 bytes from `offset` on.
struct KeyBits {
  struct Part {  // of one byte
    unsigned shift;
    unsigned width;
  };
  std::uint32_t offset = 0;  // in the key; the keys are equal before it
  std::array<Part, 8> parts{};
  std::size_t partCount = 0;
  unsigned total = 0;  // 0: the keys do not differ

  [[nodiscard]] std::uint32_t gather(const std::uint8_t* key) const {
    const std::uint64_t prefix = loadKeyPrefix(key + offset);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < partCount; ++i) {
      const auto part = static_cast<std::uint32_t>(prefix >> parts[i].shift);
      bits = bits << parts[i].width | (part & ((1U << parts[i].width) - 1));
    }
    return bits;
  }
};

const std::uint8_t* keyOfSlot(const RunContext& run, std::uint32_t slot) { return entryKey(entryOfSlot(run, slot)); }

// The bits in which the keys differ, in the 8 bytes from `offset` on.
std::uint64_t differingBits(const RunContext& run, Slots slots, std::uint32_t offset) {
  const std::uint64_t first = loadKeyPrefix(keyOfSlot(run, slots.front()) + offset);
  std::uint64_t differing = 0;
  for (const std::uint32_t slot : slots) differing |= loadKeyPrefix(keyOfSlot(run, slot) + offset) ^ first;
  return differing & keyPrefixMask(run.sortKeyLength, offset);
}

// Chooses up to `wanted` bits from the first byte that differs on. All bits of a byte below its highest differing one
// are taken, or, where that is too many, the upper ones of these: the number orders as the bytes do.
KeyBits chooseKeyBits(const RunContext& run, Slots slots, std::uint32_t offset, unsigned wanted) {
  KeyBits chosen;
  std::uint64_t differing = 0;
  for (; offset < run.sortKeyLength && differing == 0; offset += 8) differing = differingBits(run, slots, offset);
  if (differing == 0) return chosen;
  chosen.offset = offset - 8 + static_cast<std::uint32_t>(std::countl_zero(differing)) / 8;
  differing = differingBits(run, slots, chosen.offset);
  for (unsigned low = 56; chosen.total < wanted; low -= 8) {
    const auto span = static_cast<unsigned>(std::bit_width(static_cast<std::uint8_t>(differing >> low)));
    const unsigned width = std::min(span, wanted - chosen.total);
    if (width > 0) chosen.parts[chosen.partCount++] = {low + span - width, width};
    chosen.total += width;
    if (low == 0) break;
  }
  return chosen;
}

unsigned wantedBits(std::size_t entries) {
  const unsigned bits = static_cast<unsigned>(std::bit_width(entries)) + spareBits;
  return std::min((bits + digitBits - 1) / digitBits * digitBits, 2 * digitBits);
}

// Distributes the pairs by the digit that begins at bit `shift`, keeping the order of equal ones.
void distribute(std::span<const Pair> from, Pair* to, unsigned shift) {
  std::array<std::uint32_t, digitValues> place{};
  for (const Pair& pair : from) ++place[pair.bits >> shift & (digitValues - 1)];
  std::uint32_t next = 0;
  for (std::uint32_t& count : place) next += std::exchange(count, next);
  for (const Pair& pair : from) to[place[pair.bits >> shift & (digitValues - 1)]++] = pair;
}

// Orders the slots by the chosen bits; the first slot of each group of equal bits is marked with groupStart.
void orderByPairs(const RunContext& run, Slots slots, const KeyBits& chosen) {
  Pair* pairs = pairArea.data();
  Pair* other = otherPairArea.data();
  for (std::size_t i = 0; i < slots.size(); ++i) pairs[i] = {chosen.gather(keyOfSlot(run, slots[i])), slots[i]};
  for (unsigned shift = 0; shift < chosen.total; shift += digitBits) {
    distribute({pairs, slots.size()}, other, shift);
    std::swap(pairs, other);
  }
  slots[0] = pairs[0].slot | groupStart;
  for (std::size_t i = 1; i < slots.size(); ++i) {
    slots[i] = pairs[i].slot | (pairs[i].bits != pairs[i - 1].bits ? groupStart : 0);
  }
}

// As orderByPairs, in place: the bits stand above the entry number in the slot, and each slot is brought into the part
// of its bits, one exchange after the other. Does not keep the order of equal ones.
void orderInPlace(const RunContext& run, Slots slots, const KeyBits& chosen, unsigned slotBits) {
  std::array<std::uint32_t, digitValues + 1> partEnd{};
  for (std::uint32_t& slot : slots) {
    const std::uint32_t bits = chosen.gather(keyOfSlot(run, slot));
    ++partEnd[bits];
    slot |= bits << slotBits;
  }
  std::array<std::uint32_t, digitValues + 1> next{};
  std::uint32_t end = 0;
  for (std::size_t i = 0; i < partEnd.size(); ++i) {
    next[i] = end;
    partEnd[i] = end += partEnd[i];
  }
  for (std::uint32_t part = 0; part < digitValues; ++part) {
    while (next[part] < partEnd[part]) {
      std::uint32_t slot = slots[next[part]];
      while (slot >> slotBits != part) std::swap(slot, slots[next[slot >> slotBits]++]);
      slots[next[part]++] = slot;
    }
  }
  std::uint32_t before = ~0U;
  for (std::uint32_t& slot : slots) {
    const std::uint32_t bits = slot >> slotBits;
    slot = (slot & ((1U << slotBits) - 1)) | (bits != before ? groupStart : 0);
    before = bits;
  }
}

// The slots of equal keys. A scan delivers them in order already.
void orderByLfa(const RunContext& run, Slots slots) {
  const auto lfa = [&](std::uint32_t slot) { return entryLfa(entryOfSlot(run, slot)); };
  if (!std::ranges::is_sorted(slots, {}, lfa)) std::ranges::sort(slots, {}, lfa);
}

void sortByMethod(const RunContext& run, Slots slots) {
  if (slots.size() < 2) return;
  const auto sort = run.sortMethod == 0 ? ShellSortEntries : QuickSortEntries;
  sort(run, &slots.front(), &slots.back());
}

// Sorts slots whose keys are equal before `offset`.
void sortGroup(const RunContext& run, Slots slots, std::uint32_t offset) {
  if (slots.size() <= smallGroup) {
    sortByMethod(run, slots);
    return;
  }
  const auto slotBits = static_cast<unsigned>(std::bit_width(std::size_t{run.sortEntryCapacity}));
  const bool fitsPairs = slots.size() <= maxPairs;
  const unsigned wanted = fitsPairs ? wantedBits(slots.size()) : std::min(32 - slotBits, digitBits);
  const KeyBits chosen = chooseKeyBits(run, slots, offset, wanted);
  if (chosen.total == 0) {
    orderByLfa(run, slots);
    return;
  }
  if (fitsPairs) {
    orderByPairs(run, slots, chosen);
  } else {
    orderInPlace(run, slots, chosen, slotBits);
  }
  for (std::size_t start = 0; start < slots.size();) {
    slots[start] &= ~groupStart;
    std::size_t end = start + 1;
    while (end < slots.size() && (slots[end] & groupStart) == 0) ++end;
    sortGroup(run, slots.subspan(start, end - start), chosen.offset);
    start = end;
  }
}

bool sortsAfter(const RunContext& run, std::uint32_t a, std::uint32_t b) {
  return CompareSortEntries(entryOfSlot(run, a), entryOfSlot(run, b), run.sortKeyLength) > 0;
}

}  // namespace

void SortTrain(RunContext& run) {
  std::uint32_t count = 0;
  while (count < run.sortEntryCapacity) {
    run.sortPointerArray[count] = count;
    if (isEndMarker(entryOfSlot(run, count))) break;
    ++count;
  }
  sortGroup(run, {run.sortPointerArray, count}, 0);
}

// NOLINTNEXTLINE(readability-non-const-parameter): the slot at `last` is exchanged too, reached from `first`
void ShellSortEntries(const RunContext& run, std::uint32_t* first, std::uint32_t* last) {
  const auto count = last - first + 1;
  for (auto gap = count / 2; gap > 0; gap /= 2) {
    for (auto i = gap; i < count; ++i) {
      for (auto j = i; j >= gap && sortsAfter(run, first[j - gap], first[j]); j -= gap)
        std::swap(first[j - gap], first[j]);
    }
  }
}

void QuickSortEntries(const RunContext& run, std::uint32_t* first, std::uint32_t* last) {
  while (first < last) {
    std::swap(*first, first[(last - first) / 2]);  // the middle one is the pivot
    std::uint32_t* place = first;
    for (std::uint32_t* slot = first + 1; slot <= last; ++slot) {
      if (sortsAfter(run, *first, *slot)) std::swap(*++place, *slot);
    }
    std::swap(*first, *place);
    // The smaller part by recursion, the larger one by the loop: the stack stays small.
    if (place - first < last - place) {
      QuickSortEntries(run, first, place - 1);
      first = place + 1;
    } else {
      QuickSortEntries(run, place + 1, last);
      last = place - 1;
    }
  }
}

}  // namespace tarnvale
