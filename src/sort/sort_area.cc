#include "sort/sort_area.h"

#include <sys/mman.h>
#include <unistd.h>

#include "sort/merge_selection.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t smallestArea = 8192;
constexpr std::uintptr_t alignment = 4096;  // of the area: blocks are read into aligned parts of it

constexpr std::uint32_t hugePage = 2097152;  // bytes

// A large area is gone through in the order of the keys, so to say at random: with pages of the usual size most steps
// would miss the processor's table of pages. Where the system has no larger ones, nothing changes.
void wantHugePages(std::uint8_t* base, std::uint32_t size) {
  const auto address = reinterpret_cast<std::uintptr_t>(base);
  const std::uintptr_t gap = (hugePage - address % hugePage) % hugePage;
  if (size < 2 * hugePage) return;
  static_cast<void>(::madvise(base + gap, (size - gap) / hugePage * hugePage, MADV_HUGEPAGE));
}

bool isFailed(void* block) { return reinterpret_cast<std::intptr_t>(block) == -1; }

std::uint8_t* extendDataSegment(std::uint32_t size) {
  const auto end = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  const std::uintptr_t padding = (alignment - end % alignment) % alignment;
  void* const block = ::sbrk(static_cast<std::intptr_t>(size + padding + readableBehindArea));
  return isFailed(block) ? nullptr : static_cast<std::uint8_t*>(block) + padding;
}

}  // namespace

bool probeMemory(SortArea& area, std::uint32_t size) {
  do {
    area.base = extendDataSegment(size);
    area.size = size;
    if (area.base != nullptr) {
      wantHugePages(area.base, size);
      return true;
    }
    size /= 2;
  } while (size >= smallestArea);
  area.size = 0;
  return false;
}

bool divideSortArea(SortArea& area, std::uint32_t keyLength, Messages& messages) {
  area.keyLength = keyLength;
  area.entrySize = keyLength + static_cast<std::uint32_t>(sortEntryHeadSize);
  const auto smallest = static_cast<std::uint32_t>(maxFanIn + 1) * area.entrySize;
  if (area.size < smallest) {
    putFormatted(messages, "Sort memory of %u bytes is too small: a key of %u bytes needs %u bytes.\n", area.size,
                 keyLength, smallest);
    return false;
  }
  area.capacity = area.size / (area.entrySize + static_cast<std::uint32_t>(sizeof(std::uint32_t))) - 1;
  const std::size_t entryBytes = static_cast<std::size_t>(area.capacity) * area.entrySize;
  // The base is aligned to 16 bytes at least, so the slots are aligned too.
  area.slots = reinterpret_cast<std::uint32_t*>(area.base + (entryBytes + 7) / 8 * 8);
  return true;
}

}  // namespace tarnvale
