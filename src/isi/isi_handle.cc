#include "isi/isi_handle.h"

#include <algorithm>

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

IndexResult readHeaderArea(IsiHandle& handle) {
  IsiHeaderArea& area = handle.area;
  if (readAt(handle.fd, &area, sizeof area, 0) != static_cast<ssize_t>(sizeof area)) return IndexResult::notAnIndex;
  if (handle.bigEndian) swapHeader(area.header);
  if (!hasUsableGeometry(handle)) return IndexResult::notAnIndex;
  takeGeometry(handle);
  if (handle.bigEndian) {
    swapNode(area.root, handle.entrySize);
    if (area.header.deletedListHead != noPointer) swapDeletedNode(area.deletedNode, true);
  }
  return IndexResult::done;
}

IndexResult readAtPointer(const IsiHandle& handle, std::uint32_t pointer, void* target) {
  const std::uint64_t offset = offsetOfPointer(pointer, handle.recordNumbers);
  if (offset % nodeSize != 0) return IndexResult::nodeMisplaced;
  const ssize_t count = readAt(handle.fd, target, nodeSize, offset);
  if (count < 0) return IndexResult::nodeNotRead;
  return count == static_cast<ssize_t>(nodeSize) ? IndexResult::done : IndexResult::nodeMissing;
}

IndexResult writtenAt(int fd, const void* bytes, std::size_t size, std::uint64_t offset) {
  return writeAllAt(fd, bytes, size, offset) ? IndexResult::done : IndexResult::notWritten;
}

}  // namespace

IndexResult openIndex(IsiHandle& handle, int fd) {
  handle.fd = fd;
  const IsiHeader& header = handle.area.header;
  const ssize_t count = readAt(fd, &handle.area, sizeof handle.area, 0);
  if (count != static_cast<ssize_t>(sizeof handle.area)) return IndexResult::notAnIndex;
  if (!std::ranges::equal(header.magic, isiMagic)) return IndexResult::notAnIndex;
  if (header.versionWord.bytes[1] != (header.versionWord.bytes[0] ^ 0xFF)) return IndexResult::versionUnknown;
  handle.bigEndian = header.versionWord == isiVersionSwapped;
  return readHeaderArea(handle);
}

IndexResult checkSpinCounter(IsiHandle& handle) { return readHeaderArea(handle); }

IndexResult readTreeNode(const IsiHandle& handle, std::uint32_t pointer, IsiNode& node) {
  if (offsetOfPointer(pointer, handle.recordNumbers) < headerAreaSize) return IndexResult::inconsistent;
  const IndexResult result = readAtPointer(handle, pointer, &node);
  if (result == IndexResult::done && handle.bigEndian) swapNode(node, handle.entrySize);
  return result;
}

IndexResult checkDeletedNode(const IsiHandle& handle) {
  const DeletedRecordNode& node = handle.area.deletedNode;
  if (node.signature[0] != DeletedRecordNode::signature1 || node.signature[1] != DeletedRecordNode::signature2) {
    return IndexResult::deletedNodeUnsigned;
  }
  const bool inRange = node.count >= 1 && node.count <= DeletedRecordNode::capacity;
  return inRange ? IndexResult::done : IndexResult::deletedNodeCountWrong;
}

IndexResult readDeletedNode(IsiHandle& handle, std::uint32_t pointer) {
  const IndexResult result = readAtPointer(handle, pointer, &handle.area.deletedNode);
  if (result != IndexResult::done) return result;
  if (handle.bigEndian) swapDeletedNode(handle.area.deletedNode, true);
  return checkDeletedNode(handle);
}

IndexResult writeHeader(const IsiHandle& handle, int fd) {
  IsiHeader header = handle.area.header;
  if (handle.bigEndian) swapHeader(header);
  return writtenAt(fd, &header, sizeof header, 0);
}

IndexResult writeTreeNode(const IsiHandle& handle, int fd, std::uint64_t offset, const IsiNode& node) {
  IsiNode image = node;
  if (handle.bigEndian) swapNode(image, handle.entrySize);
  return writtenAt(fd, &image, sizeof image, offset);
}

IndexResult writeDeletedNode(const IsiHandle& handle, int fd, std::uint64_t offset) {
  DeletedRecordNode image = handle.area.deletedNode;
  // Without a list the node is only a placeholder, and was not byte-swapped when it was read.
  if (handle.bigEndian && handle.area.header.deletedListHead != noPointer) swapDeletedNode(image, false);
  return writtenAt(fd, &image, sizeof image, offset);
}

}  // namespace tarnvale
