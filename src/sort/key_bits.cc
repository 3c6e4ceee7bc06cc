#include "sort/key_bits.h"

#include <algorithm>
#include <bit>

namespace tarnvale {

KeyBits takeBits(std::uint64_t differing, std::uint32_t offset, std::uint32_t keyLength, unsigned wanted) {
  KeyBits chosen;
  chosen.offset = offset;
  chosen.equalUpTo = offset + static_cast<std::uint32_t>(std::countl_zero(differing)) / 8;
  for (unsigned low = 64; low > 0;) {
    low -= 8;
    const auto span = static_cast<unsigned>(std::bit_width(static_cast<std::uint8_t>(differing >> low)));
    const unsigned width = std::min(span, wanted - chosen.total);
    const unsigned begin = low + span - width;
    if (width > 0) chosen.parts[chosen.partCount++] = {((std::uint64_t{1} << width) - 1) << begin, begin};
    chosen.total += width;
    chosen.more = chosen.more || width < span;
  }
  unsigned place = chosen.total;
  for (std::size_t i = 0; i < chosen.partCount; ++i) {
    KeyBits::Part& part = chosen.parts[i];
    place -= static_cast<unsigned>(std::popcount(part.mask));
    part.move -= place;
  }
  chosen.whole = !chosen.more && offset + 8 >= keyLength;
  return chosen;
}

}  // namespace tarnvale
