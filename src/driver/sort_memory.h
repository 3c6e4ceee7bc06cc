// The memory of the sort: the area that entries are sorted and merged in, the train table, and the buffers.
#pragma once

#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

/// Allocates `workIoBuffer` and `inputBuffer`. -9 and a message when there is no memory for them.
[[nodiscard]] StatusCode allocateBuffers(RunContext& run);

/// Extends the data segment by `size` bytes, or by the largest halving of it that can be had, down to 8192; sets
/// `sortAreaBase`. The bytes obtained, 0 for none. The block lives until the process ends.
[[nodiscard]] std::uint32_t ProbeMemory(RunContext& run, std::uint32_t size);

/// Allocates `trainTable`. -9 and a message when there is no memory for it.
[[nodiscard]] StatusCode allocateTrainTable(RunContext& run);

/// ProbeMemory for `maxMemory` bytes. -9 and a message when nothing can be had.
[[nodiscard]] StatusCode obtainSortArea(RunContext& run);

}  // namespace tarnvale
