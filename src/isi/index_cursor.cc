#include "isi/index_cursor.h"

#include <cstring>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

const std::uint8_t* entryAt(const IndexCursor& cursor, const IsiNode& node, std::uint32_t index) {
  return node.entries.data() + std::size_t{index} * cursor.handle->entrySize;
}

// The child before entry number `index`; behind the last entry the right child.
std::uint32_t childAt(const IndexCursor& cursor, const IsiNode& node, std::uint32_t index) {
  if (index == node.count) return node.rightChild;
  return entryHead(entryAt(cursor, node, index)).leftChild;
}

// The node at the pointer, in the block; it holds until the next node is looked for. Most nodes are neighbours of the
// one before.
IndexResult findInBlock(IndexCursor& cursor, std::uint32_t pointer, const IsiNode*& node) {
  const std::uint64_t offset = offsetOfPointer(pointer, cursor.handle->recordNumbers);
  if (offset % nodeSize != 0) return IndexResult::nodeMisplaced;
  if (offset < headerAreaSize) return IndexResult::inconsistent;
  if (offset < cursor.blockStart || offset >= cursor.blockStart + cursor.blockLength) {
    cursor.blockStart = offset - offset % IndexCursor::blockSize;
    const ssize_t count = readAt(cursor.handle->fd, cursor.block.data(), IndexCursor::blockSize, cursor.blockStart);
    cursor.blockLength = count > 0 ? static_cast<std::uint64_t>(count) : 0;
    if (count < 0) return IndexResult::nodeNotRead;
  }
  if (offset + nodeSize > cursor.blockStart + cursor.blockLength) return IndexResult::nodeMissing;
  node = reinterpret_cast<const IsiNode*>(cursor.block.data() + (offset - cursor.blockStart));
  return IndexResult::done;
}

// Makes the node at the pointer that of the step. A leaf of a little-endian index stays in the block: no other node is
// looked for before it is done. A node above others is copied.
IndexResult loadNode(IndexCursor& cursor, std::uint32_t pointer, IndexCursor::PathStep& step) {
  const IndexResult result = findInBlock(cursor, pointer, step.node);
  if (result != IndexResult::done) return result;
  if (cursor.handle->bigEndian || step.node->level != 0) {
    std::memcpy(&step.image, step.node, sizeof step.image);
    step.node = &step.image;
    if (cursor.handle->bigEndian) swapNode(step.image, cursor.handle->entrySize);
  }
  const bool usable = step.node->count >= 1 && step.node->count <= cursor.handle->entriesPerNode;
  return usable ? IndexResult::done : IndexResult::inconsistent;
}

// Goes down from the child before entry `index` of the current node to the first entry of its subtree.
IndexResult descend(IndexCursor& cursor, std::uint32_t index) {
  cursor.path[cursor.depth].entry = index;
  for (;;) {
    IndexCursor::PathStep& step = cursor.path[cursor.depth];
    const std::uint32_t child = childAt(cursor, *step.node, step.entry);
    if (child == 0) return IndexResult::done;
    if (cursor.depth == maxPathDepth) return IndexResult::treeTooDeep;
    if (++cursor.nodesEntered > cursor.nodesInFile) return IndexResult::inconsistent;
    // What says that it is a leaf, but has nodes below, must not lie in the block when these are looked for.
    if (step.node != &step.image) {
      std::memcpy(&step.image, step.node, sizeof step.image);
      step.node = &step.image;
    }
    IndexCursor::PathStep& below = cursor.path[cursor.depth + 1];
    below.entry = 0;
    const IndexResult result = loadNode(cursor, child, below);
    if (result != IndexResult::done) return result;
    ++cursor.depth;
  }
}

// Goes up to the nearest node with an entry behind the subtree that was left.
IndexResult climb(IndexCursor& cursor) {
  while (cursor.depth > 0) {
    const IndexCursor::PathStep& step = cursor.path[--cursor.depth];
    if (step.entry < step.node->count) return IndexResult::done;
  }
  cursor.atEnd = true;
  return IndexResult::endOfIndex;
}

IndexResult firstEntry(IndexCursor& cursor) {
  const auto size = fileSize(cursor.handle->fd);
  if (!size) return IndexResult::nodeNotRead;
  cursor.nodesInFile = *size / nodeSize;
  const IsiNode& root = cursor.handle->area.root;
  cursor.path[0].node = &root;
  if (root.count > cursor.handle->entriesPerNode) return IndexResult::inconsistent;
  if (root.count > 0) return descend(cursor, 0);
  if (root.rightChild != 0) return IndexResult::inconsistent;
  cursor.atEnd = true;
  return IndexResult::endOfIndex;
}

// Keys ascend, and the duplicate numbers of equal keys rise. Gaps are left where applications removed entries, but
// nothing goes back or comes twice: that happens where a rewriting was cut short, and nodes of the new tree lie under
// the old root.
bool followsInOrder(const IsiHandle& handle, const std::uint8_t* before, const std::uint8_t* entry) {
  const int order = std::memcmp(isiEntryKey(before), isiEntryKey(entry), handle.keyLength);
  if (order != 0) return order < 0;
  const auto step = static_cast<std::uint16_t>(entryHead(entry).duplicateNumber - entryHead(before).duplicateNumber);
  constexpr std::uint16_t backwards = 0x8000;  // the numbers have 16 bits and start again at 0
  return step != 0 ? step < backwards : entryHead(entry).position != entryHead(before).position;
}

// Brings the cursor to the entry behind the current one.
IndexResult step(IndexCursor& cursor) {
  if (cursor.beforeFirst) return firstEntry(cursor);
  IndexCursor::PathStep& current = cursor.path[cursor.depth];
  const std::uint32_t next = current.entry + 1;
  if (childAt(cursor, *current.node, next) != 0) return descend(cursor, next);
  current.entry = next;
  return next < current.node->count ? IndexResult::done : climb(cursor);
}

}  // namespace

void startCursor(IndexCursor& cursor, const IsiHandle& handle) {
  cursor.handle = &handle;
  cursor.beforeFirst = true;
  cursor.atEnd = false;
  cursor.nodesEntered = 0;
  cursor.depth = 0;
  cursor.blockLength = 0;
}

IndexResult nextEntry(IndexCursor& cursor) {
  if (cursor.atEnd) return IndexResult::endOfIndex;
  // The entry before is compared with the next one, which may lie where it was read to.
  if (!cursor.beforeFirst) std::memcpy(cursor.previous.data(), cursor.entry, cursor.handle->entrySize);
  const IndexResult result = step(cursor);
  if (result != IndexResult::done) return result;
  const IndexCursor::PathStep& current = cursor.path[cursor.depth];
  cursor.entry = entryAt(cursor, *current.node, current.entry);
  if (!cursor.beforeFirst && !followsInOrder(*cursor.handle, cursor.previous.data(), cursor.entry)) {
    return IndexResult::inconsistent;
  }
  cursor.beforeFirst = false;
  return IndexResult::done;
}

}  // namespace tarnvale
