// In place, the nodes of the list may lie anywhere, also where it is to be written. So it is written behind the old end
// of the file first, and then moved down.
#include "isi/deleted_list_copy.h"

#include <unistd.h>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

ListCopyResult reportNotWritten(Messages& messages) {
  reportIndexWriteFailure(messages);
  return ListCopyResult::notWritten;
}

ListCopyResult writeNodeAt(const IsiHandle& handle, int fd, std::uint64_t offset, Messages& messages) {
  const bool written = writeDeletedNode(handle, fd, offset) == IndexResult::done;
  return written ? ListCopyResult::done : reportNotWritten(messages);
}

// Brings the first node of the list into the header area. It stands there already, unless the head points elsewhere.
bool loadFirstNode(IsiHandle& handle) {
  const std::uint32_t head = handle.area.header.deletedListHead;
  const bool inArea = offsetOfPointer(head, handle.recordNumbers) == deletedListOffset;
  return (inArea ? checkDeletedNode(handle) : readDeletedNode(handle, head)) == IndexResult::done;
}

// What a copy of the list has come to.
struct ListCopy {
  std::uint64_t nodes = 1;
  std::uint32_t positions = 0;
};

// Writes the nodes of the list one after the other from `offset` on, linked as they will lie from byte 1536 on.
ListCopyResult copyList(IsiHandle& handle, IndexOutput& output, std::uint64_t offset, ListCopy& copy,
                        Messages& messages) {
  const std::uint64_t oldSize = fileSize(handle.fd).value_or(0);  // behind it lies what this routine writes in place
  DeletedRecordNode& node = handle.area.deletedNode;
  if (!loadFirstNode(handle)) return ListCopyResult::damaged;
  handle.area.header.deletedListHead = pointerToOffset(deletedListOffset, handle.recordNumbers);
  for (copy.nodes = 1;; ++copy.nodes) {
    const std::uint32_t oldNext = node.next;
    const bool last = oldNext == noPointer;
    copy.positions += node.count;
    node.next = last ? noPointer : pointerToOffset(deletedListOffset + copy.nodes * nodeSize, handle.recordNumbers);
    const ListCopyResult result = writeNodeAt(handle, output.fd(), offset + (copy.nodes - 1) * nodeSize, messages);
    if (last || result != ListCopyResult::done) return result;
    const bool inOldFile = offsetOfPointer(oldNext, handle.recordNumbers) + nodeSize <= oldSize;
    const bool inCircle = copy.nodes > oldSize / nodeSize;
    if (!inOldFile || inCircle || !advanceNodePointer(output, messages)) return ListCopyResult::damaged;
    if (readDeletedNode(handle, oldNext) != IndexResult::done) return ListCopyResult::damaged;
  }
}

ListCopyResult moveListDown(int fd, std::uint64_t from, std::uint64_t nodes, Messages& messages) {
  DeletedRecordNode node;
  for (std::uint64_t i = 0; i < nodes; ++i) {
    const ssize_t count = readAt(fd, &node, sizeof node, from + i * nodeSize);
    if (count != static_cast<ssize_t>(sizeof node)) return ListCopyResult::damaged;
    if (!writeAllAt(fd, &node, sizeof node, deletedListOffset + i * nodeSize)) return reportNotWritten(messages);
  }
  return ListCopyResult::done;
}

// True when the positions of deleted records go on to be kept for reuse.
bool keepsList(const IsiHeader& header) {
  constexpr auto notKept = record_flag::byOffset | record_flag::deletedNotKept;
  return (header.recordFlags & notKept) == 0 && header.deletedListHead != noPointer;
}

ListCopyResult writeList(IsiHandle& handle, IndexOutput& output, bool inPlace, ListCopy& copy, Messages& messages) {
  IsiHeader& header = handle.area.header;
  if (!keepsList(header)) {
    if (header.deletedListHead != noPointer) putMessage(messages, "Deleted Data Record sectors purged from ISI!");
    header.deletedListHead = noPointer;
    return writeNodeAt(handle, output.fd(), deletedListOffset, messages);  // a placeholder
  }
  if (!inPlace) return copyList(handle, output, deletedListOffset, copy, messages);
  const auto oldEnd = fileSize(output.fd());
  if (!oldEnd) return ListCopyResult::damaged;
  const ListCopyResult result = copyList(handle, output, *oldEnd, copy, messages);
  if (result != ListCopyResult::done) return result;
  return moveListDown(output.fd(), *oldEnd, copy.nodes, messages);
}

}  // namespace

ListCopyResult checkDeletedList(IsiHandle& handle) {
  if (!keepsList(handle.area.header)) return ListCopyResult::done;
  const DeletedRecordNode first = handle.area.deletedNode;
  std::uint64_t nodesLeft = fileSize(handle.fd).value_or(0) / nodeSize;
  bool whole = loadFirstNode(handle);
  while (whole && handle.area.deletedNode.next != noPointer) {
    whole = nodesLeft-- > 0 && readDeletedNode(handle, handle.area.deletedNode.next) == IndexResult::done;
  }
  handle.area.deletedNode = first;
  return whole ? ListCopyResult::done : ListCopyResult::damaged;
}

ListCopyResult carryDeletedList(IsiHandle& handle, IndexOutput& output, bool inPlace, std::uint32_t& count,
                                Messages& messages) {
  ListCopy copy;
  const ListCopyResult result = writeList(handle, output, inPlace, copy, messages);
  count = copy.positions;
  if (result != ListCopyResult::done) return result;
  const std::uint64_t end = deletedListOffset + copy.nodes * nodeSize;
  const bool placed = ::ftruncate(output.fd(), static_cast<off_t>(end)) == 0 && seekTo(output.fd(), end);
  return placed ? ListCopyResult::done : reportNotWritten(messages);
}

}  // namespace tarnvale
