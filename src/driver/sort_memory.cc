#include "driver/sort_memory.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "common/output.h"
#include "sort/input_buffer.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t smallestArea = 8192;
constexpr std::uintptr_t alignment = 4096;   // of the area: blocks are read into aligned parts of it
constexpr std::uint32_t readableBehind = 8;  // bytes behind the area that a key prefix at its end may reach

bool isFailed(void* block) { return reinterpret_cast<std::intptr_t>(block) == -1; }

std::uint8_t* extendDataSegment(std::uint32_t size) {
  const auto end = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  const std::uintptr_t padding = (alignment - end % alignment) % alignment;
  void* const block = ::sbrk(static_cast<std::intptr_t>(size + padding + readableBehind));
  return isFailed(block) ? nullptr : static_cast<std::uint8_t*>(block) + padding;
}

// A buffer that begins on a page: the system copies blocks into such a place faster, by a tenth of a whole run.
std::uint8_t* allocateBuffer(std::size_t size) {
  constexpr std::size_t pageSize = 4096;
  return static_cast<std::uint8_t*>(std::aligned_alloc(pageSize, (size + pageSize - 1) / pageSize * pageSize));
}

}  // namespace

StatusCode allocateBuffers(RunContext& run) {
  run.workIoBuffer = allocateBuffer(workIoBufferSize);
  run.inputBuffer = allocateBuffer(inputBufferSize);
  run.workIoPosition = run.workIoBuffer;
  if (run.workIoBuffer != nullptr && run.inputBuffer != nullptr) return status::success;
  PutMessage(run, "Insufficient Memory for Buffers.\n");
  return status::outOfMemory;
}

std::uint32_t ProbeMemory(RunContext& run, std::uint32_t size) {
  do {
    run.sortAreaBase = extendDataSegment(size);
    if (run.sortAreaBase != nullptr) return size;
    size /= 2;
  } while (size >= smallestArea);
  return 0;
}

StatusCode allocateTrainTable(RunContext& run) {
  run.trainTable = static_cast<std::uint64_t*>(std::calloc(run.maxSortTrains, sizeof(std::uint64_t)));
  if (run.trainTable != nullptr) return status::success;
  PutMessage(run, "Sort train memory allocation failed.\n");
  return status::outOfMemory;
}

StatusCode obtainSortArea(RunContext& run) {
  run.sortAreaSize = ProbeMemory(run, run.maxMemory);
  if (run.sortAreaSize != 0) return status::success;
  PutMessage(run, "Memory allocation failed.\n");
  return status::outOfMemory;
}

}  // namespace tarnvale
