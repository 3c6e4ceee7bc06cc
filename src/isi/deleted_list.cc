#include "isi/deleted_list.h"

#include "common/posix_file.h"

namespace tarnvale {

namespace {

// Completes the pending node, which links to the list so far, and writes it at the file's position.
bool writePendingNode(DeletedList& list, const IndexOutput& output, Messages& messages) {
  DeletedRecordNode& node = list.pending;
  node.signature = {DeletedRecordNode::signature1, DeletedRecordNode::signature2};
  node.next = list.headPointer;
  if (writeAll(output.fd(), &node, sizeof node)) return true;
  reportIndexWriteFailure(messages);
  return false;
}

}  // namespace

bool appendDeletedRecord(DeletedList& list, IndexOutput& output, std::uint64_t lfa, Messages& messages) {
  if (!list.kept) return true;
  DeletedRecordNode& node = list.pending;
  if (node.count == DeletedRecordNode::capacity) {
    if (!advanceNodePointer(output, messages) || !writePendingNode(list, output, messages)) return false;
    list.headPointer = output.lastNodePointer;
    node.count = 0;
  }
  node.positions[node.count] = static_cast<std::uint32_t>(lfa / list.positionUnit);
  node.count = static_cast<std::uint16_t>(node.count + 1);
  return true;
}

bool finishDeletedList(DeletedList& list, const IndexOutput& output, Messages& messages) {
  if (list.pending.count == 0) return true;
  if (!writePendingNode(list, output, messages)) return false;
  list.headPointer = pointerToOffset(deletedListOffset, output.recordNumbers);
  return true;
}

}  // namespace tarnvale
