// The tree cursor: an existing index walked in key order.
//
// The path from the root to the current node is a stack of steps, each with its node. The next entry stands either
// below the current one's right side, or is the entry of the nearest ancestor whose child was left.
//
// An index may be damaged: every count and pointer is checked before it is used, keys must ascend, and no more nodes
// are entered than the file has, so that a walk always ends.
#pragma once

#include <array>
#include <cstdint>

#include "isi/isi_handle.h"

namespace tarnvale {

inline constexpr std::size_t maxPathDepth = 19;  // nodes above the current one

/// A walk over an open index. The handle must stay.
struct IndexCursor {
  /// A node on the path, and how far it is done.
  struct PathStep {
    const IsiNode* node = nullptr;  // in `image`, in the block, or in the header area
    std::uint32_t entry = 0;        // the current entry; of a node above: the one before which its child was entered
    IsiNode image;                  // of an inner node
  };

  /// A piece of the file that nodes are taken from: one after the other they lie side by side.
  static constexpr std::size_t blockSize = 32768;

  const IsiHandle* handle = nullptr;
  bool beforeFirst = true;
  bool atEnd = false;
  std::uint64_t nodesEntered = 0;  // from above; no tree has more than the file has nodes
  std::uint64_t nodesInFile = 0;
  std::uint32_t depth = 0;  // of the current node
  std::array<PathStep, maxPathDepth + 1> path{};
  std::uint64_t blockStart = 0;   // file offset of the block in memory
  std::uint64_t blockLength = 0;  // bytes of it, 0 at first
  std::array<std::uint8_t, blockSize> block{};
  const std::uint8_t* entry = nullptr;  // delivered last; holds until the next one is asked for
  std::array<std::uint8_t, isiEntrySize(maxKeyLength)> previous{};  // copy of the entry before, where its node is gone
};

/// Puts the cursor before the first entry.
void startCursor(IndexCursor& cursor, const IsiHandle& handle);

/// Moves to the next entry in key order, which `entry` then points to.
[[nodiscard]] IndexResult nextEntry(IndexCursor& cursor);

}  // namespace tarnvale
