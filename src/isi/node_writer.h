// Writing to the index file: appended nodes, and the one message when a write fails.
#pragma once

#include <cstdint>

#include "common/run_context.h"
#include "isi/isi_format.h"

namespace tarnvale {

/// Prints that a segment of the index file could not be written, with errno, and makes the driver's message name the
/// index file.
void reportIndexWriteFailure(RunContext& run);

/// The pointer that the next appended node will have. False, and a message, when it would not fit 32 bits.
[[nodiscard]] bool advanceNodePointer(RunContext& run);

/// Writes a node through the buffer, in the byte order of the file. False, and a message, when it fails.
[[nodiscard]] bool putNode(RunContext& run, const IsiNode& node);

}  // namespace tarnvale
