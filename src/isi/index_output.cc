#include "isi/index_output.h"

#include <cerrno>

namespace tarnvale {

namespace {

bool reported(bool written, Messages& messages) {
  if (!written) reportIndexWriteFailure(messages);
  return written;
}

}  // namespace

void startOutput(IndexOutput& output, FileRole file, int fd, std::uint8_t* base, bool recordNumbers) {
  output.buffer.base = base;
  aimOutput(output.buffer, file, fd, headerAreaSize);
  output.recordNumbers = recordNumbers;
  output.lastNodePointer = pointerToOffset(deletedListOffset, recordNumbers);
}

void reportIndexWriteFailure(Messages& messages) {
  putFormatted(messages, "\nUnable to write segment of index file. Errno=%d\n", errno);
}

bool advanceNodePointer(IndexOutput& output, Messages& messages) {
  const std::uint32_t step = output.recordNumbers ? 1 : nodeSize;
  if (output.lastNodePointer > noPointer - step - 1) {
    putMessage(messages, "\nThe index file would have more nodes than its 32-bit node pointers can address.\n");
    return false;
  }
  output.lastNodePointer += step;
  return true;
}

bool putNode(IndexOutput& output, const IsiNode& node, Messages& messages) {
  if (!output.byteSwapped) return reported(putBytes(output.buffer, &node, sizeof node), messages);
  IsiNode swapped = node;
  swapNode(swapped, output.entrySize);
  return reported(putBytes(output.buffer, &swapped, sizeof swapped), messages);
}

bool flushNodes(IndexOutput& output, Messages& messages) { return reported(flushOutput(output.buffer), messages); }

}  // namespace tarnvale
