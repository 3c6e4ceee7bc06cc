// The tree cursor: an existing index walked in key order, forwards or backwards, from its ends or from any key.
//
// The path from the root to the current node is a stack of steps, each with its node. The cursor stands on an entry or
// in a gap between two. The next entry stands either below the current one's right side, or is the entry of the nearest
// ancestor whose child was left; the one before likewise on the other side. A seek reads the nodes of the path alone.
//
// An index may be damaged: every count and pointer is checked before it is used, keys must ascend, and no more nodes
// are entered in one direction than the file has, so that a walk always ends.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "isi/isi_handle.h"
#include "sort/key_prefix.h"

namespace tarnvale {

inline constexpr std::size_t maxPathDepth = 19;  // nodes above the current one

/// A walk over an open index. The handle must stay.
struct IndexCursor {
  /// A node on the path, and how far it is done.
  struct PathStep {
    const IsiNode* node = nullptr;  // in `image`, in the block, or in the header area
    std::uint32_t entry = 0;        // the path goes on in the child before this entry, or ends in the gap there
    IsiNode image;                  // of a node that has to outlast the block
  };

  /// A piece of the file that nodes are taken from: one after the other they lie side by side.
  static constexpr std::size_t blockSize = 32768;
  struct Block {
    std::uint64_t start = 0;   // its place in the file
    std::uint64_t length = 0;  // bytes of it in memory, 0 at first
    std::array<std::uint8_t, blockSize> bytes{};

    [[nodiscard]] bool holds(std::uint64_t offset) const { return offset >= start && offset - start < length; }
  };

  const IsiHandle* handle = nullptr;
  const std::uint8_t* entry = nullptr;  // delivered last; holds until the next one is asked for. Null in a gap
  std::uint64_t prefix = 0;             // the first bytes of its key as a number
  std::uint64_t prefixMask = 0;
  std::uint32_t entrySize = 0;
  std::uint32_t entriesLeft = 0;   // behind it in its node; 0 in a gap
  bool entered = false;            // the path has its root
  bool backwards = false;          // the last step
  std::uint32_t depth = 0;         // of the current node
  std::uint64_t nodesEntered = 0;  // from above; no tree has more than the file has nodes
  std::uint64_t nodesInFile = 0;
  std::array<PathStep, maxPathDepth + 1> path{};
  std::array<Block, 2> blocks{};  // two: a node often lies in the block behind that of the leaves below it
  std::uint32_t latestBlock = 0;
  // Copy of the entry before, where its node is gone. A prefix may reach beyond a key.
  std::array<std::uint8_t, isiEntrySize(maxKeyLength) + sizeof prefix> previous{};
};

/// Puts the cursor before the first entry.
void startCursor(IndexCursor& cursor, const IsiHandle& handle);

/// Puts the cursor before the first entry whose key is not below `key`. Of the keys in the index as many bytes are
/// compared as it has, at most the key length; so an empty one stands for the beginning of the index.
[[nodiscard]] IndexResult seekBefore(IndexCursor& cursor, const IsiHandle& handle, std::string_view key);

/// Puts the cursor behind the last entry whose key is below `key` or begins with it; an empty one stands for the end.
[[nodiscard]] IndexResult seekBehind(IndexCursor& cursor, const IsiHandle& handle, std::string_view key);

/// Moves to the entry before the current one in key order, which `entry` then points to; endOfIndex where there is
/// none. The cursor then stands before the first entry. After any other result it has to be started anew.
[[nodiscard]] IndexResult previousEntry(IndexCursor& cursor);

namespace cursor_detail {
bool isBehindEqualPrefix(const IndexCursor& cursor, const std::uint8_t* next);
IndexResult findNextEntry(IndexCursor& cursor);
}  // namespace cursor_detail

/// Moves to the next entry in key order, which `entry` then points to; endOfIndex where there is none. The cursor then
/// stands behind the last entry. After any other result it has to be started anew.
[[nodiscard]] inline IndexResult nextEntry(IndexCursor& cursor) {
  if (cursor.entriesLeft == 0) return cursor_detail::findNextEntry(cursor);
  const std::uint8_t* const next = cursor.entry + cursor.entrySize;
  if (entryHead(next).leftChild != 0) return cursor_detail::findNextEntry(cursor);
  // Most entries are delivered here, the neighbours in a leaf, and most keys differ in their first bytes.
  const std::uint64_t prefix = loadKeyPrefix(isiEntryKey(next)) & cursor.prefixMask;
  if (prefix < cursor.prefix) return IndexResult::inconsistent;
  if (prefix == cursor.prefix && !cursor_detail::isBehindEqualPrefix(cursor, next)) return IndexResult::inconsistent;
  cursor.entry = next;
  cursor.prefix = prefix;
  --cursor.entriesLeft;
  return IndexResult::done;
}

/// Moves on over the neighbours in a leaf, as long as the beginnings of their keys ascend and `take` takes the entry
/// that it is given. What comes then is a matter for nextEntry.
template <typename Take>
[[gnu::always_inline]] inline void takeNeighbours(IndexCursor& cursor, const Take& take) {
  const std::uint32_t entrySize = cursor.entrySize;
  const std::uint64_t mask = cursor.prefixMask;
  const std::uint8_t* entry = cursor.entry;
  std::uint64_t prefix = cursor.prefix;
  std::uint32_t left = cursor.entriesLeft;
  while (left != 0) {
    const std::uint8_t* const next = entry + entrySize;
    const std::uint64_t nextPrefix = loadKeyPrefix(isiEntryKey(next)) & mask;
    if (entryHead(next).leftChild != 0 || nextPrefix <= prefix || !take(next)) break;
    entry = next;
    prefix = nextPrefix;
    --left;
  }
  cursor.entry = entry;
  cursor.prefix = prefix;
  cursor.entriesLeft = left;
}

}  // namespace tarnvale
