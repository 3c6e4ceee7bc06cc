// The bottom-up tree builder: turns entries that arrive in key order into the nodes of an index file.
#pragma once

#include <cstdint>

#include "common/run_context.h"
#include "isi/isi_format.h"

namespace tarnvale {

/// Prepares the builder for keys of `keyLength` bytes and allocates its node images. -9, and a message, when there is
/// no memory for them.
[[nodiscard]] StatusCode startTree(RunContext& run, std::uint32_t keyLength);

/// Inserts one sort entry; the merge calls it in ascending order. 0, -13 when the tree would need more than 16 levels
/// (the message is in `messageBuffer`), -1 when a node could not be written.
[[nodiscard]] StatusCode WriteTagRecord(RunContext& run, const std::uint8_t* entry);

/// Writes the partly filled nodes and the root. -157 when that fails.
[[nodiscard]] StatusCode finishLevels(RunContext& run);

/// The image of the deleted-record node that is being filled.
[[nodiscard]] DeletedRecordNode& pendingDeletedNode(RunContext& run);

}  // namespace tarnvale
