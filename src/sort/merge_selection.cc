#include "sort/merge_selection.h"

namespace tarnvale {

HeadShape makeHeadShape(std::uint32_t keyLength, std::uint32_t sharedLength) {
  constexpr std::uint64_t slotBits = 31;
  HeadShape shape;
  shape.keyLength = keyLength;
  shape.entrySize = static_cast<std::uint32_t>(sortEntryHeadSize) + keyLength;
  shape.prefixStart = static_cast<std::uint32_t>(sortEntryHeadSize) + sharedLength;
  shape.prefixMask = keyPrefixMask(keyLength, sharedLength) & ~slotBits;
  shape.wholeKey = (shape.prefixMask & 0xFF) == 0;
  return shape;
}

bool LoserTree::entrySortsBefore(Head a, Head b) const {
  if (a == noHead || b == noHead) return a != noHead;
  const std::uint8_t* const first = slots_[slotOf(a)].cursor;
  const std::uint8_t* const second = slots_[slotOf(b)].cursor;
  if (isEndMarker(first) || isEndMarker(second)) return !isEndMarker(first);
  return compareSortEntries(first, second, shape_.keyLength) < 0;
}

}  // namespace tarnvale
