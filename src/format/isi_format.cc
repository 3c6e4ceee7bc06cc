#include "format/isi_format.h"

#include <algorithm>

namespace tarnvale {

void swapHeader(IsiHeader& header) {
  swapBytes(header.recordLength);
  swapBytes(header.keyLength);
  for (Le32* field :
       {&header.dataExtent, &header.deletedListHead, &header.rootPointer, &header.reserved24, &header.reserved28,
        &header.spinCounter, &header.reserved36, &header.reserved40, &header.recordCount, &header.deletedCount}) {
    swapBytes(*field);
  }
  for (PrimaryCondition& test : header.selectTests) swapBytes(test.position);
  for (KeySpec& segment : header.keySegments) {
    if (segment.length == 0) break;
    swapBytes(segment.start);
    swapBytes(segment.length);
  }
}

void swapNode(IsiNode& node, std::uint32_t entrySize) {
  swapBytes(node.rightChild);
  swapBytes(node.level);
  const std::uint32_t count = std::min<std::uint32_t>(node.count, entriesPerNode(entrySize));
  for (std::uint32_t i = 0; i < count; ++i) {
    auto& entry = *reinterpret_cast<IsiEntryHead*>(node.entries.data() + std::size_t{i} * entrySize);
    swapBytes(entry.position);
    swapBytes(entry.leftChild);
    swapBytes(entry.duplicateNumber);
    swapBytes(entry.recordLength);
  }
}

void swapDeletedNode(DeletedRecordNode& node, bool fromFile) {
  std::uint16_t count = node.count;
  swapBytes(node.count);
  if (fromFile) count = node.count;
  swapBytes(node.next);
  if (count > DeletedRecordNode::capacity) return;
  for (std::uint16_t i = 0; i < count; ++i) swapBytes(node.positions[i]);
}

}  // namespace tarnvale
