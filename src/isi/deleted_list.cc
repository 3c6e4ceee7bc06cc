// The list grows at its head. A full node goes to the file when the next position comes, and links to the full one
// before it; all of them are written during the scan, before the first node of the tree. The last one, always at byte
// 1536, links to the full one written last.
#include "isi/deleted_list.h"

#include "common/posix_file.h"
#include "isi/isi_format.h"
#include "isi/node_writer.h"
#include "isi/tree_builder.h"

namespace tarnvale {

namespace {

// Completes the pending node, which links to the list so far, and writes it at the file's position.
bool writePendingNode(RunContext& run) {
  DeletedRecordNode& node = pendingDeletedNode(run);
  node.signature = {DeletedRecordNode::signature1, DeletedRecordNode::signature2};
  node.next = run.previousListPointer;
  if (writeAll(run.outputFd, &node, sizeof node)) return true;
  reportIndexWriteFailure(run);
  return false;
}

}  // namespace

StatusCode appendDeletedRecord(RunContext& run) {
  if (run.writeAllAtEnd) return status::success;
  DeletedRecordNode& node = pendingDeletedNode(run);
  if (node.count == DeletedRecordNode::capacity) {
    if (!advanceNodePointer(run) || !writePendingNode(run)) return status::deletedNodeNotWritten;
    run.previousListPointer = run.lastNodePointer;
    node.count = 0;
  }
  const std::uint64_t position =
      run.recordNumberAddressing ? run.currentLfa / static_cast<std::uint64_t>(run.foundRecordLength) : run.currentLfa;
  node.positions[node.count] = static_cast<std::uint32_t>(position);
  node.count = static_cast<std::uint16_t>(node.count + 1);
  return status::success;
}

StatusCode finishDeletedList(RunContext& run) {
  if (pendingDeletedNode(run).count == 0) return status::success;
  if (!writePendingNode(run)) return status::indexNotWritten;
  run.previousListPointer = pointerToOffset(deletedListOffset, run.recordNumberAddressing);
  return status::success;
}

}  // namespace tarnvale
