#include "sort/merge_selection.h"

namespace tarnvale {

HeadShape makeHeadShape(std::uint32_t keyLength, std::uint32_t sharedLength) {
  constexpr std::uint64_t slotBits = 31;
  HeadShape shape;
  shape.keyLength = keyLength;
  shape.prefixStart = static_cast<std::uint32_t>(sortEntryHeadSize) + sharedLength;
  shape.prefixMask = keyPrefixMask(keyLength, sharedLength) & ~slotBits;
  return shape;
}

bool LoserTree::entrySortsBefore(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t keyLength) {
  if (isEndMarker(a) || isEndMarker(b)) return !isEndMarker(a);
  return compareSortEntries(a, b, keyLength) < 0;
}

}  // namespace tarnvale
