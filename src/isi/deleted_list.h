// The list of deleted records: their positions, 126 to a node.
//
// The list grows at its head. A full node goes to the file when the next position comes, and links to the full one
// before it; all of them are written during the scan, before the first node of the tree. The last one, always at byte
// 1536, links to the full one written last.
#pragma once

#include <cstdint>

#include "isi/index_output.h"

namespace tarnvale {

struct DeletedList {
  DeletedRecordNode pending{};            // the node being filled
  std::uint32_t headPointer = noPointer;  // of the last full node written; when the list is finished, of its first
  bool kept = true;                       // off with options w, v and s: nothing is kept
  std::uint64_t positionUnit = 1;         // bytes of a position: a record, or one
};

/// Adds the record at the LFA. False, and a message, when a full node could not be written.
[[nodiscard]] bool appendDeletedRecord(DeletedList& list, IndexOutput& output, std::uint64_t lfa, Messages& messages);

/// Writes the node still being filled, if it holds anything, at the file's position, where it becomes the first of the
/// list. False, and a message, when that fails.
[[nodiscard]] bool finishDeletedList(DeletedList& list, const IndexOutput& output, Messages& messages);

}  // namespace tarnvale
