#include "isi/index_cursor.h"

#include <cstring>

#include "common/copy_short.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

const std::uint8_t* entryAt(const IndexCursor& cursor, const IsiNode& node, std::uint32_t index) {
  return node.entries.data() + std::size_t{index} * cursor.entrySize;
}

// The child before entry number `index`; behind the last entry the right child.
std::uint32_t childAt(const IndexCursor& cursor, const IsiNode& node, std::uint32_t index) {
  if (index == node.count) return node.rightChild;
  return entryHead(entryAt(cursor, node, index)).leftChild;
}

// --- order ----------------------------------------------------------------------------------------------------------

int compareKeys(const IsiHandle& handle, const std::uint8_t* a, const std::uint8_t* b) {
  return std::memcmp(isiEntryKey(a), isiEntryKey(b), handle.keyLength);
}

// Keys ascend, and the duplicate numbers of equal keys rise. Gaps are left where applications removed entries, but
// nothing goes back or comes twice: that happens where a rewriting was cut short, and nodes of the new tree lie under
// the old root.
bool followsInOrder(const IsiHandle& handle, const std::uint8_t* before, const std::uint8_t* entry) {
  const int order = compareKeys(handle, before, entry);
  if (order != 0) return order < 0;
  const auto step = static_cast<std::uint16_t>(entryHead(entry).duplicateNumber - entryHead(before).duplicateNumber);
  constexpr std::uint16_t backwards = 0x8000;  // the numbers have 16 bits and start again at 0
  return step != 0 ? step < backwards : entryHead(entry).position != entryHead(before).position;
}

// As many bytes of the key as `like` has.
std::string_view beginningOf(const std::uint8_t* entryKey, std::string_view like) {
  return {reinterpret_cast<const char*>(entryKey), like.size()};
}

// Between two entries of an inner node there may be so many others that their duplicate numbers say nothing.
bool hasAscendingKeys(const IndexCursor& cursor, const IsiNode& node) {
  for (std::uint32_t i = 1; i < node.count; ++i) {
    if (compareKeys(*cursor.handle, entryAt(cursor, node, i - 1), entryAt(cursor, node, i)) > 0) return false;
  }
  return true;
}

// --- nodes ----------------------------------------------------------------------------------------------------------

// The node at the pointer, in a block; it holds until the next node is looked for. Most nodes are neighbours of the one
// before.
IndexResult findInBlock(IndexCursor& cursor, std::uint32_t pointer, const IsiNode*& node) {
  const std::uint64_t offset = offsetOfPointer(pointer, cursor.handle->recordNumbers);
  if (offset % nodeSize != 0) return IndexResult::nodeMisplaced;
  if (offset < headerAreaSize) return IndexResult::inconsistent;
  IndexCursor::Block* block = &cursor.blocks[cursor.latestBlock];
  if (!block->holds(offset)) block = &cursor.blocks[cursor.latestBlock ^= 1];
  if (!block->holds(offset)) {
    block->start = offset - offset % IndexCursor::blockSize;
    const ssize_t count = readAt(cursor.handle->fd, block->bytes.data(), IndexCursor::blockSize, block->start);
    block->length = count > 0 ? static_cast<std::uint64_t>(count) : 0;
    if (count < 0) return IndexResult::nodeNotRead;
  }
  if (!block->holds(offset + nodeSize - 1)) return IndexResult::nodeMissing;
  node = reinterpret_cast<const IsiNode*>(block->bytes.data() + (offset - block->start));
  return IndexResult::done;
}

void keepImage(IndexCursor::PathStep& step) {
  std::memcpy(&step.image, step.node, sizeof step.image);
  step.node = &step.image;
}

bool hasUsableCount(const IndexCursor& cursor, const IsiNode& node) {
  return node.count >= 1 && node.count <= cursor.handle->entriesPerNode;
}

// Makes the node at the pointer that of the step, for a walk over its neighbours too. A leaf of a little-endian index
// stays in the block: no other node is looked for before it is done. A node above others is copied.
IndexResult loadFromBlock(IndexCursor& cursor, std::uint32_t pointer, IndexCursor::PathStep& step) {
  const IndexResult result = findInBlock(cursor, pointer, step.node);
  if (result != IndexResult::done) return result;
  if (cursor.handle->bigEndian || step.node->level != 0) {
    keepImage(step);
    if (cursor.handle->bigEndian) swapNode(step.image, cursor.handle->entrySize);
  }
  return hasUsableCount(cursor, *step.node) ? IndexResult::done : IndexResult::inconsistent;
}

// The same for a seek, which wants no neighbour. What a walk would meet sooner or later shows here or nowhere: keys
// that do not ascend, and a node that belongs elsewhere.
IndexResult loadAlone(IndexCursor& cursor, std::uint32_t pointer, IndexCursor::PathStep& step) {
  step.node = &step.image;
  const IndexResult result = readTreeNode(*cursor.handle, pointer, step.image);
  if (result != IndexResult::done) return result;
  const bool usable = hasUsableCount(cursor, step.image) && hasAscendingKeys(cursor, step.image) &&
                      step.image.level < cursor.path[cursor.depth].node->level;
  return usable ? IndexResult::done : IndexResult::inconsistent;
}

// --- the path -------------------------------------------------------------------------------------------------------

IndexResult enterRoot(IndexCursor& cursor) {
  const auto size = fileSize(cursor.handle->fd);
  if (!size) return IndexResult::nodeNotRead;
  cursor.nodesInFile = *size / nodeSize;
  const IsiNode& root = cursor.handle->area.root;
  cursor.path[0].node = &root;
  cursor.entered = true;
  const bool usable = root.count > 0 ? hasUsableCount(cursor, root) : root.rightChild == 0;
  return usable ? IndexResult::done : IndexResult::inconsistent;
}

// Goes down from the gap of the current node to a gap without a child. `load` brings each node, `gapIn` chooses the way
// on in it.
template <typename Load, typename GapIn>
IndexResult descend(IndexCursor& cursor, Load load, GapIn gapIn) {
  for (;;) {
    IndexCursor::PathStep& step = cursor.path[cursor.depth];
    const std::uint32_t child = childAt(cursor, *step.node, step.entry);
    if (child == 0) return IndexResult::done;
    if (cursor.depth == maxPathDepth) return IndexResult::treeTooDeep;
    if (++cursor.nodesEntered > cursor.nodesInFile) return IndexResult::inconsistent;
    // What says that it is a leaf, but has nodes below, must not lie in the block when these are looked for.
    if (cursor.depth > 0 && step.node != &step.image) keepImage(step);
    IndexCursor::PathStep& below = cursor.path[cursor.depth + 1];
    const IndexResult result = load(cursor, child, below);
    if (result != IndexResult::done) return result;
    below.entry = gapIn(*below.node);
    ++cursor.depth;
  }
}

IndexResult descendToFirst(IndexCursor& cursor) {
  return descend(cursor, loadFromBlock, [](const IsiNode& /*node*/) { return 0U; });
}

IndexResult descendToLast(IndexCursor& cursor) {
  return descend(cursor, loadFromBlock, [](const IsiNode& node) { return std::uint32_t{node.count}; });
}

// The gap in front of the first entry that is not `left`, in a node whose left entries come first.
template <typename IsLeft>
std::uint32_t findGap(const IndexCursor& cursor, const IsiNode& node, IsLeft isLeft) {
  std::uint32_t gap = 0;
  for (std::uint32_t end = node.count; gap < end;) {
    const std::uint32_t middle = (gap + end) / 2;
    if (isLeft(isiEntryKey(entryAt(cursor, node, middle)))) {
      gap = middle + 1;
    } else {
      end = middle;
    }
  }
  return gap;
}

template <typename IsLeft>
IndexResult seek(IndexCursor& cursor, const IsiHandle& handle, IsLeft isLeft) {
  startCursor(cursor, handle);
  const IndexResult result = enterRoot(cursor);
  if (result != IndexResult::done) return result;
  const IsiNode& root = *cursor.path[0].node;
  if (!hasAscendingKeys(cursor, root)) return IndexResult::inconsistent;
  const auto gapIn = [&](const IsiNode& node) { return findGap(cursor, node, isLeft); };
  cursor.path[0].entry = gapIn(root);
  return descend(cursor, loadAlone, gapIn);
}

// --- steps ----------------------------------------------------------------------------------------------------------

// Number of the current entry in its node. Only the entries left are counted from one neighbour to the next.
std::uint32_t currentIndex(const IndexCursor& cursor) {
  return cursor.path[cursor.depth].node->count - 1U - cursor.entriesLeft;
}

void noteDirection(IndexCursor& cursor, bool backwards) {
  if (cursor.backwards != backwards) cursor.nodesEntered = 0;
  cursor.backwards = backwards;
}

// The entry that is left is compared with the one that is found, which may lie where it was read to.
void rememberEntry(IndexCursor& cursor) {
  copyShort(cursor.previous.data(), cursor.entry, cursor.entrySize);
  cursor.entry = cursor.previous.data();
}

IndexResult deliver(IndexCursor& cursor, std::uint32_t depth, std::uint32_t index) {
  const IsiNode& node = *cursor.path[depth].node;
  const std::uint8_t* const before = cursor.entry;
  const std::uint64_t prefixBefore = cursor.prefix;
  const std::uint8_t* const entry = entryAt(cursor, node, index);
  cursor.depth = depth;
  cursor.entry = entry;
  cursor.prefix = loadKeyPrefix(isiEntryKey(entry)) & cursor.prefixMask;
  cursor.entriesLeft = node.count - 1U - index;
  if (before == nullptr) return IndexResult::done;
  bool ordered = (cursor.prefix < prefixBefore) == cursor.backwards;
  if (cursor.prefix == prefixBefore) {
    ordered = cursor.backwards ? followsInOrder(*cursor.handle, entry, before)
                               : followsInOrder(*cursor.handle, before, entry);
  }
  return ordered ? IndexResult::done : IndexResult::inconsistent;
}

// Nothing is there in this direction: the cursor stays in the outermost gap.
IndexResult stayAtEnd(IndexCursor& cursor) {
  cursor.entry = nullptr;
  cursor.entriesLeft = 0;
  return IndexResult::endOfIndex;
}

}  // namespace

namespace cursor_detail {

bool isBehindEqualPrefix(const IndexCursor& cursor, const std::uint8_t* next) {
  return followsInOrder(*cursor.handle, cursor.entry, next);
}

IndexResult findNextEntry(IndexCursor& cursor) {
  IndexResult result = IndexResult::done;
  noteDirection(cursor, false);
  if (!cursor.entered) {
    result = enterRoot(cursor);
    if (result == IndexResult::done) result = descendToFirst(cursor);
  } else if (cursor.entry != nullptr) {
    cursor.path[cursor.depth].entry = currentIndex(cursor) + 1;
    rememberEntry(cursor);
    result = descendToFirst(cursor);
  }
  if (result != IndexResult::done) return result;
  for (std::uint32_t depth = cursor.depth;; --depth) {
    const IndexCursor::PathStep& step = cursor.path[depth];
    if (step.entry < step.node->count) return deliver(cursor, depth, step.entry);
    if (depth == 0) return stayAtEnd(cursor);
  }
}

}  // namespace cursor_detail

void startCursor(IndexCursor& cursor, const IsiHandle& handle) {
  cursor.handle = &handle;
  cursor.entry = nullptr;
  cursor.prefixMask = keyPrefixMask(handle.keyLength, 0);
  cursor.entrySize = handle.entrySize;
  cursor.entriesLeft = 0;
  cursor.entered = false;
  cursor.backwards = false;
  cursor.depth = 0;
  cursor.nodesEntered = 0;
  for (IndexCursor::Block& block : cursor.blocks) block.length = 0;
  cursor.path[0].entry = 0;
}

IndexResult seekBefore(IndexCursor& cursor, const IsiHandle& handle, std::string_view key) {
  return seek(cursor, handle, [key](const std::uint8_t* entryKey) { return beginningOf(entryKey, key) < key; });
}

IndexResult seekBehind(IndexCursor& cursor, const IsiHandle& handle, std::string_view key) {
  return seek(cursor, handle, [key](const std::uint8_t* entryKey) { return beginningOf(entryKey, key) <= key; });
}

IndexResult previousEntry(IndexCursor& cursor) {
  IndexResult result = IndexResult::done;
  if (!cursor.entered) return IndexResult::endOfIndex;
  noteDirection(cursor, true);
  if (cursor.entry != nullptr) {
    cursor.path[cursor.depth].entry = currentIndex(cursor);
    rememberEntry(cursor);
    result = descendToLast(cursor);
  }
  if (result != IndexResult::done) return result;
  for (std::uint32_t depth = cursor.depth;; --depth) {
    IndexCursor::PathStep& step = cursor.path[depth];
    if (step.entry > 0) return deliver(cursor, depth, --step.entry);
    if (depth == 0) return stayAtEnd(cursor);
  }
}

}  // namespace tarnvale
