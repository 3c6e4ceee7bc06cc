// In place, the nodes of the list may lie anywhere, also where it is to be written. So it is written behind the old end
// of the file first, and then moved down.
#include "isi/deleted_list_copy.h"

#include <unistd.h>

#include "common/output.h"
#include "common/posix_file.h"
#include "isi/node_writer.h"

namespace tarnvale {

namespace {

StatusCode failWrite(RunContext& run) {
  reportIndexWriteFailure(run);
  return status::indexNotWritten;
}

StatusCode writeNodeAt(RunContext& run, const IsiHandle& handle, std::uint64_t offset) {
  return writeDeletedNode(handle, run.outputFd, offset) == status::success ? status::success : failWrite(run);
}

// Brings the first node of the list into the header area. It stands there already, unless the head points elsewhere.
StatusCode loadFirstNode(IsiHandle& handle) {
  const std::uint32_t head = handle.area.header.deletedListHead;
  const bool inArea = offsetOfPointer(head, handle.recordNumbers) == deletedListOffset;
  const StatusCode status = inArea ? checkDeletedNode(handle) : readDeletedNode(handle, head);
  return status == status::success ? status : status::workFileReadFailed;
}

// Writes the nodes of the list one after the other from `offset` on, linked as they will lie from byte 1536 on.
// `nodes` becomes their number.
StatusCode copyList(RunContext& run, IsiHandle& handle, std::uint64_t offset, std::uint64_t& nodes) {
  const std::uint64_t oldSize = fileSize(handle.fd).value_or(0);  // behind it lies what this routine writes in place
  DeletedRecordNode& node = handle.area.deletedNode;
  StatusCode status = loadFirstNode(handle);
  handle.area.header.deletedListHead = pointerToOffset(deletedListOffset, handle.recordNumbers);
  for (nodes = 1; status == status::success; ++nodes) {
    const std::uint32_t oldNext = node.next;
    const bool last = oldNext == noPointer;
    run.deletedRecordCount += node.count;
    node.next = last ? noPointer : pointerToOffset(deletedListOffset + nodes * nodeSize, handle.recordNumbers);
    status = writeNodeAt(run, handle, offset + (nodes - 1) * nodeSize);
    if (last || status != status::success) return status;
    const bool inOldFile = offsetOfPointer(oldNext, handle.recordNumbers) + nodeSize <= oldSize;
    const bool inCircle = nodes > oldSize / nodeSize;
    if (!inOldFile || inCircle || !advanceNodePointer(run)) return status::workFileReadFailed;
    if (readDeletedNode(handle, oldNext) != status::success) return status::workFileReadFailed;
  }
  return status;
}

StatusCode moveListDown(RunContext& run, std::uint64_t from, std::uint64_t nodes) {
  DeletedRecordNode node;
  for (std::uint64_t i = 0; i < nodes; ++i) {
    const ssize_t count = readAt(run.outputFd, &node, sizeof node, from + i * nodeSize);
    if (count != static_cast<ssize_t>(sizeof node)) return status::workFileReadFailed;
    if (!writeAllAt(run.outputFd, &node, sizeof node, deletedListOffset + i * nodeSize)) return failWrite(run);
  }
  return status::success;
}

// True when the positions of deleted records go on to be kept for reuse.
bool keepsList(const IsiHeader& header) {
  constexpr auto notKept = record_flag::byOffset | record_flag::deletedNotKept;
  return (header.recordFlags & notKept) == 0 && header.deletedListHead != noPointer;
}

StatusCode writeList(RunContext& run, IsiHandle& handle, std::uint64_t& nodes) {
  IsiHeader& header = handle.area.header;
  nodes = 1;
  if (!keepsList(header)) {
    if (header.deletedListHead != noPointer) PutMessage(run, "Deleted Data Record sectors purged from ISI!");
    header.deletedListHead = noPointer;
    return writeNodeAt(run, handle, deletedListOffset);  // a placeholder
  }
  if (!run.inPlace) return copyList(run, handle, deletedListOffset, nodes);
  const auto oldEnd = fileSize(run.outputFd);
  if (!oldEnd) return status::workFileReadFailed;
  const StatusCode status = copyList(run, handle, *oldEnd, nodes);
  return status == status::success ? moveListDown(run, *oldEnd, nodes) : status;
}

}  // namespace

StatusCode checkDeletedList(IsiHandle& handle) {
  if (!keepsList(handle.area.header)) return status::success;
  const DeletedRecordNode first = handle.area.deletedNode;
  std::uint64_t nodesLeft = fileSize(handle.fd).value_or(0) / nodeSize;
  StatusCode status = loadFirstNode(handle);
  while (status == status::success && handle.area.deletedNode.next != noPointer) {
    const bool hasNode = nodesLeft-- > 0 && readDeletedNode(handle, handle.area.deletedNode.next) == status::success;
    if (!hasNode) status = status::workFileReadFailed;
  }
  handle.area.deletedNode = first;
  return status;
}

StatusCode carryDeletedList(RunContext& run, IsiHandle& handle) {
  run.deletedRecordCount = 0;
  std::uint64_t nodes = 0;
  const StatusCode status = writeList(run, handle, nodes);
  if (status != status::success) return status;
  const std::uint64_t end = deletedListOffset + nodes * nodeSize;
  if (::ftruncate(run.outputFd, static_cast<off_t>(end)) != 0 || !seekTo(run.outputFd, end)) return failWrite(run);
  return status::success;
}

}  // namespace tarnvale
