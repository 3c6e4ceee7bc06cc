#include "check/deleted_list_check.h"

#include <cinttypes>

namespace tarnvale {

namespace {

constexpr std::uint64_t firstListNode = deletedListOffset / nodeSize;
constexpr std::uint64_t secondListNode = headerAreaSize / nodeSize;
constexpr std::uint64_t capacity = DeletedRecordNode::capacity;

// Either the build kept no list, or a compaction has discarded it.
bool mayBeMissing(const IsiHeader& header) {
  constexpr auto notKept = record_flag::variableLength | record_flag::spaceCompressed | record_flag::deletedNotKept;
  return header.deletedListHead == noPointer && (header.recordFlags & notKept) != 0;
}

}  // namespace

DeletedListCheck::DeletedListCheck(IsiHandle& index, Report& report)
    : index_(index),
      report_(report),
      positions_([this](std::uint32_t& position) { return nextPosition(position); }),
      comparable_(follow()) {
  if (comparable_) return;
  // How many nodes a broken list should have is known from the count.
  nodes_ = mayBeMissing(index.area.header) ? 0 : (index.area.header.deletedCount + capacity - 1) / capacity;
  total_ = 0;
}

// Reads the node that comes behind node `before` in the list (0: the first). False when it is not in its place or
// damaged.
bool DeletedListCheck::readLinked(std::uint32_t pointer, std::uint64_t before) {
  const std::uint64_t number = offsetOfPointer(pointer, index_.recordNumbers) / nodeSize;
  if (before == firstListNode) linksGoUp_ = number == secondListNode;
  const bool placed = before == 0               ? number == firstListNode
                      : before == firstListNode ? number >= secondListNode
                                                : number == (linksGoUp_ ? before + 1 : before - 1);
  return placed && readDeletedNode(index_, pointer) == IndexResult::done &&
         (before == 0 || index_.area.deletedNode.count == capacity);
}

// Follows the links. False when there is no list, or a broken one, which is reported.
bool DeletedListCheck::follow() {
  const IsiHeader& header = index_.area.header;
  if (mayBeMissing(header)) return false;
  std::uint32_t pointer = header.deletedListHead;
  std::uint64_t before = 0;
  for (; pointer != noPointer; ++nodes_) {
    if (!readLinked(pointer, before)) {
      report_.add("the deleted-record list is broken: at %" PRIu32 " there is not its node number %" PRIu64, pointer,
                  nodes_ + 1);
      return false;
    }
    before = offsetOfPointer(pointer, index_.recordNumbers) / nodeSize;
    pointer = index_.area.deletedNode.next;
    total_ += index_.area.deletedNode.count;
  }
  if (total_ == header.deletedCount && (linksGoUp_ || nodes_ < 2 || before == secondListNode)) return true;
  report_.add("the deleted-record list has %s, the header counts %" PRIu32, counted(total_, "position").c_str(),
              std::uint32_t{header.deletedCount});
  return false;
}

std::uint64_t DeletedListCheck::firstTreeNode() const { return secondListNode + (nodes_ > 0 ? nodes_ - 1 : 0); }

// Groups of 126 are numbered as the scan fills them; the last one is the first node of the list.
std::uint64_t DeletedListCheck::nodeOfGroup(std::uint64_t group) const {
  if (group == nodes_ - 1) return firstListNode;
  return secondListNode + (linksGoUp_ ? nodes_ - 2 - group : group);
}

bool DeletedListCheck::nextPosition(std::uint32_t& position) {
  while (read_ < total_) {
    const std::uint64_t slot = read_ % capacity;
    const std::uint64_t offset = nodeOfGroup(read_ / capacity) * nodeSize;
    if (slot == 0 && readDeletedNode(index_, pointerToOffset(offset, index_.recordNumbers)) != IndexResult::done) {
      read_ += capacity;  // reported when the links were followed
      continue;
    }
    position = index_.area.deletedNode.positions[slot];
    ++read_;
    return true;
  }
  return false;
}

void DeletedListCheck::addSurplus(std::uint32_t position) {
  report_.add("the deleted-record list has position %" PRIu32 ", where no deleted record is", position);
}

void DeletedListCheck::take(std::uint64_t lfa, std::uint64_t unit) {
  if (!comparable_) return;
  const auto wanted = static_cast<std::uint32_t>(lfa / unit);
  const auto order = [wanted](std::uint32_t found) { return found < wanted ? -1 : found > wanted ? 1 : 0; };
  if (positions_.find(order, [this](std::uint32_t position) { addSurplus(position); }) == nullptr) {
    report_.add("LFA %" PRIu64 ": the deleted record is not in the list", lfa);
  }
}

void DeletedListCheck::checkAlone() {
  const std::uint64_t end = std::uint64_t{index_.area.header.dataExtent} + (index_.recordNumbers ? 1 : 0);
  std::uint64_t least = 0;
  for (std::uint32_t position = 0; nextPosition(position); least = std::uint64_t{position} + 1) {
    if (position >= least && position < end) continue;
    report_.add("the deleted-record list has position %" PRIu32 " %s", position,
                position < least ? "twice or not in its place" : "behind the end of the data");
  }
}

void DeletedListCheck::finish() {
  positions_.finish([this](std::uint32_t position) { addSurplus(position); });
}

}  // namespace tarnvale
