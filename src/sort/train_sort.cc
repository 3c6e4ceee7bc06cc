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
#include <span>
#include <utility>

#include "format/sort_entry.h"
#include "sort/key_bits.h"
#include "sort/key_prefix.h"

namespace tarnvale {

namespace {

constexpr std::size_t smallGroup = 24;  // up to here comparing entries is faster than distributing them
constexpr unsigned digitBits = 11;      // the counters of a digit, 8 KiB, stay in the first-level cache
constexpr std::uint32_t digitValues = 1U << digitBits;
constexpr unsigned spareBits = 5;  // bits taken beyond those that number the entries: most groups end at one
constexpr std::uint32_t groupStart = 1U << 31;  // in a slot: its bits differ from the slot before

using Slots = std::span<std::uint32_t>;
using Histogram = std::array<std::uint32_t, digitValues>;

// What the steps of one sort share.
struct TrainSort {
  const SortArea& area;
  SortMethod method;
  SortPair* pairs;
  SortPair* otherPairs;
  std::uint64_t* prefixes;  // in the place of the other pairs, before these are made

  [[nodiscard]] std::uint64_t prefixOf(std::uint32_t slot, std::uint32_t offset) const {
    return loadKeyPrefix(entryKey(area.entryOfSlot(slot)) + offset);
  }
};

// The bits in which the keys differ, in the 8 bytes from `offset` on. Where pairs will be made, these bytes are kept:
// fetching the entries is what takes the time, above all those of a part of a large train, which lie all over it.
std::uint64_t differingBits(const TrainSort& sort, Slots slots, std::uint32_t offset) {
  const std::uint64_t first = sort.prefixOf(slots.front(), offset);
  std::uint64_t differing = 0;
  if (slots.size() <= maxPairs) {
    constexpr std::size_t ahead = 96;  // for each to have come; an entry may lie across two lines of the cache
    const bool scattered = sort.area.capacity > maxPairs;
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (scattered) {
        const std::uint8_t* const later = sort.area.entryOfSlot(slots[std::min(i + ahead, slots.size() - 1)]);
        __builtin_prefetch(later);
        __builtin_prefetch(later + sort.area.entrySize - 1);
      }
      const std::uint64_t prefix = sort.prefixOf(slots[i], offset);
      sort.prefixes[i] = prefix;
      differing |= prefix ^ first;
    }
  } else {
    for (const std::uint32_t slot : slots) differing |= sort.prefixOf(slot, offset) ^ first;
  }
  return differing & keyPrefixMask(sort.area.keyLength, offset);
}

unsigned slotBitsOf(const TrainSort& sort) {
  return static_cast<unsigned>(std::bit_width(std::size_t{sort.area.capacity}));
}

unsigned wantedBits(const TrainSort& sort, std::size_t entries) {
  if (entries > maxPairs) return std::min(32 - slotBitsOf(sort), digitBits);
  const unsigned bits = static_cast<unsigned>(std::bit_width(entries)) + spareBits;
  return std::min((bits + digitBits - 1) / digitBits * digitBits, 2 * digitBits);
}

// Whether two digits tell few keys apart, as where some lie far from all others: in a sample of the keys one value of
// the higher digit comes often.
bool isCrowded(const TrainSort& sort, std::size_t count, const KeyBits& chosen) {
  constexpr std::size_t samples = 64;
  constexpr std::size_t often = samples / 16;
  std::array<std::uint8_t, digitValues> found{};
  const std::size_t step = std::max<std::size_t>(count / samples, 1);
  for (std::size_t i = 0; i < std::min(count, samples); ++i) {
    if (++found[chosen.gather(sort.prefixes[i * step]) >> digitBits] > often) return true;
  }
  return false;
}

// Chooses bits in 8 bytes in which the keys differ; from the first byte that differs on where more are found there. Two
// digits of them where that will do, else three.
KeyBits chooseKeyBits(const TrainSort& sort, Slots slots, std::uint32_t offset) {
  const std::uint32_t keyLength = sort.area.keyLength;
  const unsigned wanted = wantedBits(sort, slots.size());
  std::uint64_t differing = 0;
  for (; offset < keyLength && differing == 0; offset += 8) differing = differingBits(sort, slots, offset);
  if (differing == 0) return {};
  KeyBits chosen = takeBits(differing, offset - 8, keyLength, wanted);
  if (chosen.total < wanted && chosen.equalUpTo > chosen.offset) {  // the window ends too early
    differing = differingBits(sort, slots, chosen.equalUpTo);
    chosen = takeBits(differing, chosen.equalUpTo, keyLength, wanted);
  }
  const bool wider = chosen.more && wanted > digitBits && isCrowded(sort, slots.size(), chosen);
  return wider ? takeBits(differing, chosen.offset, keyLength, maxKeyBits) : chosen;
}

// Turns the counts of the digit's values into the places where each value begins.
void makePlaces(Histogram& counts) {
  std::uint32_t next = 0;
  for (std::uint32_t& count : counts) next += std::exchange(count, next);
}

// Distributes the pairs by the digit that begins at bit `shift`, keeping the order of equal ones.
void distribute(std::span<const SortPair> from, SortPair* to, unsigned shift, Histogram& places) {
  makePlaces(places);
  for (const SortPair& pair : from) to[places[pair.bits >> shift & (digitValues - 1)]++] = pair;
}

// Pairs of the slots in the order of the chosen bits, which have so many digits, in one of the two areas. All digits
// are counted while the pairs are made.
template <unsigned digits>
const SortPair* orderByDigits(const TrainSort& sort, Slots slots, const KeyBits& chosen) {
  std::array<Histogram, digits> counts{};
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const std::uint32_t bits = chosen.gather(sort.prefixes[i]);
    sort.pairs[i] = {bits, slots[i]};
    for (unsigned digit = 0; digit < digits; ++digit) ++counts[digit][bits >> digit * digitBits & (digitValues - 1)];
  }
  SortPair* from = sort.pairs;
  SortPair* to = sort.otherPairs;
  for (unsigned digit = 0; digit < digits; ++digit) {
    distribute({from, slots.size()}, to, digit * digitBits, counts[digit]);
    std::swap(from, to);
  }
  return from;
}

// The same for any number of bits.
const SortPair* orderByPairs(const TrainSort& sort, Slots slots, const KeyBits& chosen) {
  if (chosen.total <= digitBits) return orderByDigits<1>(sort, slots, chosen);
  if (chosen.total <= 2 * digitBits) return orderByDigits<2>(sort, slots, chosen);
  return orderByDigits<3>(sort, slots, chosen);
}

// Puts the slots into the order of their pairs; the first slot of each group of equal bits is marked with groupStart.
void markGroups(Slots slots, const SortPair* ordered) {
  slots[0] = ordered[0].slot | groupStart;
  for (std::size_t i = 1; i < slots.size(); ++i) {
    slots[i] = ordered[i].slot | (ordered[i].bits != ordered[i - 1].bits ? groupStart : 0);
  }
}

// Brings the slots into the parts of their bits in place, one exchange after the other, and tells where each part ends.
// The bits stand above the entry number in the slot, and stay there. Does not keep the order of equal ones.
Histogram orderInPlace(const TrainSort& sort, Slots slots, const KeyBits& chosen) {
  const unsigned slotBits = slotBitsOf(sort);
  Histogram partEnd{};
  for (std::uint32_t& slot : slots) {
    const std::uint32_t bits = chosen.gather(sort.prefixOf(slot, chosen.offset));
    ++partEnd[bits];
    slot |= bits << slotBits;
  }
  Histogram next{};
  std::uint32_t end = 0;
  for (std::size_t i = 0; i < partEnd.size(); ++i) {
    next[i] = end;
    partEnd[i] = end += partEnd[i];
  }
  for (bool misplaced = true; misplaced;) {
    misplaced = false;
    for (std::uint32_t part = 0; part < digitValues; ++part) {
      const std::uint32_t last = partEnd[part];
      for (std::uint32_t i = next[part]; i < last; ++i) std::swap(slots[i], slots[next[slots[i] >> slotBits]++]);
      misplaced = misplaced || next[part] != last;
    }
  }
  return partEnd;
}

// The same; then takes the bits away and marks where they change.
void orderAndMarkInPlace(const TrainSort& sort, Slots slots, const KeyBits& chosen) {
  orderInPlace(sort, slots, chosen);
  const unsigned slotBits = slotBitsOf(sort);
  std::uint32_t before = ~0U;
  for (std::uint32_t& slot : slots) {
    const std::uint32_t bits = slot >> slotBits;
    slot = (slot & ((1U << slotBits) - 1)) | (bits != before ? groupStart : 0);
    before = bits;
  }
}

// The slots of equal keys. A scan delivers them in order already.
void orderByLfa(const TrainSort& sort, Slots slots) {
  const auto lfa = [&](std::uint32_t slot) { return entryLfa(sort.area.entryOfSlot(slot)); };
  if (!std::ranges::is_sorted(slots, {}, lfa)) std::ranges::sort(slots, {}, lfa);
}

bool sortsAfter(const SortArea& area, std::uint32_t a, std::uint32_t b) {
  return compareSortEntries(area.entryOfSlot(a), area.entryOfSlot(b), area.keyLength) > 0;
}

// The order of entries whose keys are equal before a byte: the next eight bytes tell most of them apart.
class OrderFrom {
 public:
  OrderFrom(const TrainSort& sort, std::uint32_t offset)
      : area_(sort.area), offset_(offset), mask_(keyPrefixMask(sort.area.keyLength, offset)) {}

  [[nodiscard]] bool isAfter(std::uint32_t a, std::uint32_t b) const {
    const std::uint64_t first = loadKeyPrefix(entryKey(area_.entryOfSlot(a)) + offset_) & mask_;
    const std::uint64_t second = loadKeyPrefix(entryKey(area_.entryOfSlot(b)) + offset_) & mask_;
    return first != second ? first > second : sortsAfter(area_, a, b);
  }

 private:
  const SortArea& area_;
  std::uint32_t offset_;
  std::uint64_t mask_;
};

// The slots from `first` to `last`.
// NOLINTNEXTLINE(readability-non-const-parameter): the slot at `last` is exchanged too, reached from `first`
void shellSortEntries(OrderFrom order, std::uint32_t* first, std::uint32_t* last) {
  const auto count = last - first + 1;
  for (auto gap = count / 2; gap > 0; gap /= 2) {
    for (auto i = gap; i < count; ++i) {
      for (auto j = i; j >= gap && order.isAfter(first[j - gap], first[j]); j -= gap)
        std::swap(first[j - gap], first[j]);
    }
  }
}

// The same. Uses little stack whatever the order.
void quickSortEntries(OrderFrom order, std::uint32_t* first, std::uint32_t* last) {
  while (first < last) {
    std::swap(*first, first[(last - first) / 2]);  // the middle one is the pivot
    std::uint32_t* place = first;
    for (std::uint32_t* slot = first + 1; slot <= last; ++slot) {
      if (order.isAfter(*first, *slot)) std::swap(*++place, *slot);
    }
    std::swap(*first, *place);
    // The smaller part by recursion, the larger one by the loop: the stack stays small.
    if (place - first < last - place) {
      quickSortEntries(order, first, place - 1);
      first = place + 1;
    } else {
      quickSortEntries(order, place + 1, last);
      last = place - 1;
    }
  }
}

// Slots whose keys are equal before `offset`.
void sortByMethod(const TrainSort& sort, Slots slots, std::uint32_t offset) {
  if (slots.size() < 2) return;
  const auto method = sort.method == SortMethod::shellSort ? shellSortEntries : quickSortEntries;
  method(OrderFrom(sort, offset), &slots.front(), &slots.back());
}

// Puts the slots into the order of their pairs and sorts each group of equal bits. False, and the groups are still to
// be sorted, when a large one is among them.
bool finishSmallGroups(const TrainSort& sort, Slots slots, const SortPair* ordered, const KeyBits& bits) {
  // Where the bits of the slot before come again, in the area that is free.
  auto* const repeats = reinterpret_cast<std::uint32_t*>(ordered == sort.pairs ? sort.otherPairs : sort.pairs);
  std::size_t count = 0;
  slots[0] = ordered[0].slot;
  for (std::uint32_t i = 1; i < slots.size(); ++i) {
    slots[i] = ordered[i].slot;
    repeats[count] = i;
    count += ordered[i].bits == ordered[i - 1].bits ? 1 : 0;
  }
  for (std::size_t next = 0; next < count;) {
    const std::size_t first = repeats[next] - 1;
    std::size_t size = 2;
    while (++next < count && repeats[next] == first + size) ++size;
    const Slots group = slots.subspan(first, size);
    if (bits.whole) {
      orderByLfa(sort, group);
    } else if (size <= smallGroup) {
      sortByMethod(sort, group, bits.equalUpTo);
    } else {
      return false;
    }
  }
  return true;
}

// Takes the first group from the front of marked slots, its mark away.
Slots takeGroup(Slots& slots) {
  slots.front() &= ~groupStart;
  std::size_t end = 1;
  while (end < slots.size() && (slots[end] & groupStart) == 0) ++end;
  const Slots group = slots.first(end);
  slots = slots.subspan(end);
  return group;
}

void sortGroup(const TrainSort& sort, Slots slots, std::uint32_t offset);

// Sorts slots that have the same bits.
void sortWithin(const TrainSort& sort, Slots group, const KeyBits& bits) {
  if (bits.whole) {
    orderByLfa(sort, group);
  } else {
    sortGroup(sort, group, bits.equalUpTo);
  }
}

// Sorts slots whose keys are equal before `offset`.
void sortGroup(const TrainSort& sort, Slots slots, std::uint32_t offset) {
  if (slots.size() <= smallGroup) {
    sortByMethod(sort, slots, offset);
    return;
  }
  const KeyBits chosen = chooseKeyBits(sort, slots, offset);
  if (chosen.total == 0) {
    orderByLfa(sort, slots);
    return;
  }
  if (slots.size() <= maxPairs) {
    const SortPair* const ordered = orderByPairs(sort, slots, chosen);
    if (finishSmallGroups(sort, slots, ordered, chosen)) return;
    markGroups(slots, ordered);
  } else {
    orderAndMarkInPlace(sort, slots, chosen);
  }
  while (!slots.empty()) {
    const Slots group = takeGroup(slots);
    if (group.size() > 1) sortWithin(sort, group, chosen);
  }
}

// Sorts a train that the caches do not hold, and hands over each part of it while they still hold that one.
bool sortInParts(const TrainSort& sort, Slots slots, SortedSlotsSink take) {
  const KeyBits chosen = chooseKeyBits(sort, slots, 0);
  if (chosen.total == 0) {
    orderByLfa(sort, slots);
    return take(slots);
  }
  const std::uint32_t numberMask = (1U << slotBitsOf(sort)) - 1;
  std::uint32_t begin = 0;
  for (const std::uint32_t end : orderInPlace(sort, slots, chosen)) {
    const Slots part = slots.subspan(begin, end - begin);
    begin = end;
    if (part.empty()) continue;
    for (std::uint32_t& slot : part) slot &= numberMask;
    sortWithin(sort, part, chosen);
    if (!take(part)) return false;
  }
  return true;
}

}  // namespace

bool isInOrder(const SortArea& area, std::uint32_t count) {
  if (count == 0) return true;
  const std::uint64_t mask = keyPrefixMask(area.keyLength, 0);
  std::uint64_t before = loadKeyPrefix(entryKey(area.entryOfSlot(0))) & mask;
  for (std::uint32_t slot = 1; slot < count; ++slot) {
    const std::uint64_t prefix = loadKeyPrefix(entryKey(area.entryOfSlot(slot))) & mask;
    if (prefix < before || (prefix == before && sortsAfter(area, slot - 1, slot))) return false;
    before = prefix;
  }
  return true;
}

bool sortTrain(const SortArea& area, std::uint32_t count, SortMethod method, std::uint8_t* pairs,
               SortedSlotsSink take) {
  for (std::uint32_t slot = 0; slot <= count; ++slot) area.slots[slot] = slot;
  const Slots slots(area.slots, count);
  auto* const pairArea = reinterpret_cast<SortPair*>(pairs);
  auto* const otherPairs = pairArea + maxPairs;
  const TrainSort sort{area, method, pairArea, otherPairs, reinterpret_cast<std::uint64_t*>(otherPairs)};
  if (count > maxPairs) return sortInParts(sort, slots, take);
  sortGroup(sort, slots, 0);
  return take(slots);
}

}  // namespace tarnvale
