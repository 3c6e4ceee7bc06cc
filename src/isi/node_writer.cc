#include "isi/node_writer.h"

#include <cerrno>

#include "common/output.h"
#include "sort/work_file.h"

namespace tarnvale {

void reportIndexWriteFailure(RunContext& run) {
  putFormatted(run, "\nUnable to write segment of index file. Errno=%d\n", errno);
  run.mergeOutputFd = run.outputFd;
}

bool advanceNodePointer(RunContext& run) {
  const std::uint32_t step = run.recordNumberAddressing ? 1 : nodeSize;
  if (run.lastNodePointer > noPointer - step - 1) {
    PutMessage(run, "\nThe index file would have more nodes than its 32-bit node pointers can address.\n");
    run.mergeOutputFd = run.outputFd;
    return false;
  }
  run.lastNodePointer += step;
  return true;
}

bool putNode(RunContext& run, const IsiNode& node) {
  StatusCode status = status::success;
  if (run.swapNodes) {
    IsiNode swapped = node;
    swapNode(swapped, run.indexEntrySize);
    status = WorkFileWrite(run, run.outputFd, &swapped, sizeof swapped);
  } else {
    status = WorkFileWrite(run, run.outputFd, &node, sizeof node);
  }
  if (status == status::success) return true;
  reportIndexWriteFailure(run);
  return false;
}

}  // namespace tarnvale
