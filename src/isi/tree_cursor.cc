// The path from the root to the current node is a stack of (node, child entered). The next entry stands either below
// the current one's right side, or is the entry of the nearest ancestor whose child was left.
//
// An index may be damaged: every count and pointer is checked before it is used, keys must ascend, and no more nodes
// are entered than the file has, so that a walk always ends.
#include "isi/tree_cursor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr char isiMagic[] = {'S', 'I', 'S', 'I'};

void takeGeometry(IsiHandle& handle) {
  handle.keyLength = handle.area.header.keyLength;
  handle.entrySize = isiEntrySize(handle.keyLength);
  handle.entriesPerNode = entriesPerNode(handle.entrySize);
  handle.recordNumbers = (handle.area.header.indexFlags & index_flag::recordNumbers) != 0;
}

// A key length that a node has room for, and the same way of addressing for records (which the record format decides)
// and for nodes.
bool hasUsableGeometry(const IsiHandle& handle) {
  const IsiHeader& header = handle.area.header;
  const std::uint32_t shortestKey = handle.keylessAllowed ? 0 : 1;
  const bool byOffset = (header.recordFlags & record_flag::byOffset) != 0;
  const bool byNumber = (header.indexFlags & index_flag::recordNumbers) != 0;
  return header.keyLength >= shortestKey && header.keyLength <= maxKeyLength && byOffset != byNumber;
}

StatusCode readHeaderArea(IsiHandle& handle) {
  IsiHeaderArea& area = handle.area;
  if (readAt(handle.fd, &area, sizeof area, 0) != static_cast<ssize_t>(sizeof area)) return status::notAnIndex;
  if (handle.bigEndian) swapHeader(area.header);
  if (!hasUsableGeometry(handle)) return status::notAnIndex;
  takeGeometry(handle);
  if (handle.bigEndian) {
    swapNode(area.root, handle.entrySize);
    if (area.header.deletedListHead != noPointer) swapDeletedNode(area.deletedNode, true);
  }
  return status::success;
}

// The offset of a node, which must be a multiple of the node size.
StatusCode findNode(const IsiHandle& handle, std::uint32_t pointer, std::uint64_t& offset) {
  offset = offsetOfPointer(pointer, handle.recordNumbers);
  if (offset % nodeSize == 0) return status::success;
  errno = 0;
  return status::nodeMisplaced;
}

StatusCode readAtPointer(const IsiHandle& handle, std::uint32_t pointer, void* target) {
  std::uint64_t offset = 0;
  const StatusCode status = findNode(handle, pointer, offset);
  if (status != status::success) return status;
  const bool whole = readAt(handle.fd, target, nodeSize, offset) == static_cast<ssize_t>(nodeSize);
  return whole ? status::success : status::nodeReadShort;
}

// Reads a node of the walk, through the block: most nodes are neighbours of the one before.
StatusCode readWalkedNode(IsiHandle& handle, std::uint32_t pointer) {
  std::uint64_t offset = 0;
  const StatusCode status = findNode(handle, pointer, offset);
  if (status != status::success) return status;
  if (offset < headerAreaSize) return status::treeInconsistent;
  if (offset < handle.blockStart || offset >= handle.blockStart + handle.blockLength) {
    handle.blockStart = offset - offset % IsiHandle::blockSize;
    const ssize_t count = readAt(handle.fd, handle.block.data(), IsiHandle::blockSize, handle.blockStart);
    handle.blockLength = count > 0 ? static_cast<std::uint64_t>(count) : 0;
  }
  if (offset + nodeSize > handle.blockStart + handle.blockLength) return status::nodeReadShort;
  std::memcpy(&handle.node, handle.block.data() + (offset - handle.blockStart), nodeSize);
  if (handle.bigEndian) swapNode(handle.node, handle.entrySize);
  return status::success;
}

// Reads a node; 0 stands for the root of the header area.
StatusCode loadNode(IsiHandle& handle, std::uint32_t pointer) {
  if (pointer == 0) {
    handle.node = handle.area.root;
  } else {
    const StatusCode status = readWalkedNode(handle, pointer);
    if (status != status::success) return status;
  }
  if (handle.node.count > handle.entriesPerNode) return status::treeInconsistent;
  return status::success;
}

const std::uint8_t* entryAt(const IsiHandle& handle, std::uint32_t index) {
  return handle.node.entries.data() + std::size_t{index} * handle.entrySize;
}

// The child before entry number `index`; behind the last entry the right child.
std::uint32_t childAt(const IsiHandle& handle, std::uint32_t index) {
  if (index == handle.node.count) return handle.node.rightChild;
  return entryHead(entryAt(handle, index)).leftChild;
}

// Goes down from the child at `index` of the current node to the first entry of its subtree.
StatusCode descend(IsiHandle& handle, std::uint32_t index) {
  handle.entryIndex = index;
  for (std::uint32_t child = childAt(handle, index); child != 0; child = childAt(handle, 0)) {
    if (handle.pathDepth == maxPathDepth) return status::pathTooDeep;
    handle.path[handle.pathDepth++] = {handle.entryIndex, handle.node};
    if (++handle.nodesEntered > handle.nodesInFile) return status::treeInconsistent;
    const StatusCode status = loadNode(handle, child);
    if (status != status::success) return status;
    if (handle.node.count == 0) return status::treeInconsistent;
    handle.entryIndex = 0;
  }
  return status::success;
}

// Goes up to the nearest node with an entry behind the subtree that was left.
StatusCode climb(IsiHandle& handle) {
  while (handle.pathDepth > 0) {
    const IsiHandle::PathStep& step = handle.path[--handle.pathDepth];
    handle.node = step.node;
    handle.entryIndex = step.child;
    if (step.child < handle.node.count) return status::success;
  }
  handle.atEnd = true;
  return status::endOfIndex;
}

StatusCode firstEntry(IsiHandle& handle) {
  handle.pathDepth = 0;
  handle.nodesEntered = 0;
  handle.blockLength = 0;
  const auto size = fileSize(handle.fd);
  if (!size) return status::nodeReadShort;
  handle.nodesInFile = *size / nodeSize;
  const StatusCode status = loadNode(handle, 0);
  if (status != status::success) return status;
  if (handle.node.count > 0) return descend(handle, 0);
  if (handle.node.rightChild != 0) return status::treeInconsistent;
  handle.atEnd = true;
  return status::endOfIndex;
}

// Keys ascend, and the duplicate numbers of equal keys rise. Gaps are left where applications removed entries, but
// nothing goes back or comes twice: that happens where a rewriting was cut short, and nodes of the new tree lie under
// the old root.
bool followsInOrder(const IsiHandle& handle, const std::uint8_t* entry) {
  const std::uint8_t* const before = handle.entry.data();
  const int order = std::memcmp(isiEntryKey(before), isiEntryKey(entry), handle.keyLength);
  if (order != 0) return order < 0;
  const auto step = static_cast<std::uint16_t>(entryHead(entry).duplicateNumber - entryHead(before).duplicateNumber);
  constexpr std::uint16_t backwards = 0x8000;  // the numbers have 16 bits and start again at 0
  return step != 0 ? step < backwards : entryHead(entry).position != entryHead(before).position;
}

// Brings the cursor to the entry behind the current one.
StatusCode step(IsiHandle& handle) {
  if (handle.beforeFirst) return firstEntry(handle);
  const std::uint32_t next = handle.entryIndex + 1;
  if (childAt(handle, next) != 0) return descend(handle, next);
  handle.entryIndex = next;
  return next < handle.node.count ? status::success : climb(handle);
}

}  // namespace

StatusCode openIndex(IsiHandle& handle, int fd) {
  handle.fd = fd;
  const IsiHeader& header = handle.area.header;
  const ssize_t count = readAt(fd, &handle.area, sizeof handle.area, 0);
  if (count != static_cast<ssize_t>(sizeof handle.area)) return status::notAnIndex;
  if (!std::ranges::equal(header.magic, isiMagic)) return status::notAnIndex;
  if (header.versionWord.bytes[1] != (header.versionWord.bytes[0] ^ 0xFF)) return status::indexVersionUnknown;
  handle.bigEndian = header.versionWord == isiVersionSwapped;
  return readHeaderArea(handle);
}

StatusCode checkSpinCounter(IsiHandle& handle) { return readHeaderArea(handle); }

StatusCode nextEntry(IsiHandle& handle) {
  if (handle.atEnd) return status::endOfIndex;
  const StatusCode status = step(handle);
  if (status != status::success) return status;
  const std::uint8_t* const entry = entryAt(handle, handle.entryIndex);
  if (!handle.beforeFirst && !followsInOrder(handle, entry)) return status::treeInconsistent;
  handle.beforeFirst = false;
  std::memcpy(handle.entry.data(), entry, handle.entrySize);
  return status::success;
}

StatusCode nextEntryAndRemember(IsiHandle& handle) {
  const StatusCode status = nextEntry(handle);
  if (status == status::success) handle.savedSpinCounter = handle.area.header.spinCounter;
  return status;
}

StatusCode readTreeNode(const IsiHandle& handle, std::uint32_t pointer, IsiNode& node) {
  if (offsetOfPointer(pointer, handle.recordNumbers) < headerAreaSize) return status::treeInconsistent;
  const StatusCode status = readAtPointer(handle, pointer, &node);
  if (status == status::success && handle.bigEndian) swapNode(node, handle.entrySize);
  return status;
}

StatusCode checkDeletedNode(const IsiHandle& handle) {
  const DeletedRecordNode& node = handle.area.deletedNode;
  if (node.signature[0] != DeletedRecordNode::signature1 || node.signature[1] != DeletedRecordNode::signature2) {
    return status::deletedNodeUnsigned;
  }
  return node.count >= 1 && node.count <= DeletedRecordNode::capacity ? status::success : status::deletedNodeCountWrong;
}

StatusCode readDeletedNode(IsiHandle& handle, std::uint32_t pointer) {
  const StatusCode status = readAtPointer(handle, pointer, &handle.area.deletedNode);
  if (status != status::success) return status;
  if (handle.bigEndian) swapDeletedNode(handle.area.deletedNode, true);
  return checkDeletedNode(handle);
}

StatusCode writeHeader(const IsiHandle& handle, int fd) {
  IsiHeader header = handle.area.header;
  if (handle.bigEndian) swapHeader(header);
  return writeAllAt(fd, &header, sizeof header, 0) ? status::success : status::writeFailed;
}

StatusCode writeTreeNode(const IsiHandle& handle, int fd, std::uint64_t offset, const IsiNode& node) {
  IsiNode image = node;
  if (handle.bigEndian) swapNode(image, handle.entrySize);
  return writeAllAt(fd, &image, sizeof image, offset) ? status::success : status::writeFailed;
}

StatusCode writeDeletedNode(const IsiHandle& handle, int fd, std::uint64_t offset) {
  DeletedRecordNode image = handle.area.deletedNode;
  // Without a list the node is only a placeholder, and was not turned when it was read.
  if (handle.bigEndian && handle.area.header.deletedListHead != noPointer) swapDeletedNode(image, false);
  return writeAllAt(fd, &image, sizeof image, offset) ? status::success : status::writeFailed;
}

}  // namespace tarnvale
