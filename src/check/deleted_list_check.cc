#include "check/deleted_list_check.h"

#include <cinttypes>

namespace tarnvale {

namespace {

constexpr std::uint64_t firstListNode = deletedListOffset / nodeSize;
constexpr std::uint64_t secondListNode = headerAreaSize / nodeSize;
constexpr std::uint64_t capacity = DeletedRecordNode::capacity;

}  // namespace

DeletedListCheck::DeletedListCheck(IsiHandle& index, bool kept, Report& report)
    : index_(index),
      report_(report),
      kept_(kept),
      positions_([this](std::uint32_t& position) { return nextPosition(position); }),
      comparable_(follow()) {
  if (!comparable_) total_ = 0;
}

// How many nodes a broken list should have is known from the count.
std::uint64_t DeletedListCheck::nodesByCount() const {
  return (index_.area.header.deletedCount + capacity - 1) / capacity;
}

// Either the build kept no list, or a compaction has discarded it.
bool DeletedListCheck::mayBeMissing() const {
  constexpr auto notKept = record_flag::byOffset | record_flag::deletedNotKept;
  const IsiHeader& header = index_.area.header;
  return header.deletedListHead == noPointer && (header.recordFlags & notKept) != 0;
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

bool DeletedListCheck::isComplete(std::uint64_t lastNode) {
  const std::uint32_t wanted = index_.area.header.deletedCount;
  const bool reachesItsEnd = linksGoUp_ || nodes_ < 2 || lastNode == secondListNode;
  if (total_ == wanted && reachesItsEnd) return true;
  if (!reachesItsEnd || nodes_ == 0) nodes_ = nodesByCount();
  report_.add("the deleted-record list has %s, the header counts %" PRIu32, counted(total_, "position").c_str(),
              wanted);
  return false;
}

// Follows the links. False when there is no list, or a broken one, which is reported.
bool DeletedListCheck::follow() {
  if (mayBeMissing()) return false;
  std::uint32_t pointer = index_.area.header.deletedListHead;
  if (!kept_ && pointer != noPointer) {
    report_.add("there is a deleted-record list, but the options keep none");
    nodes_ = nodesByCount();
    return false;
  }
  std::uint64_t before = 0;
  for (; pointer != noPointer; ++nodes_) {
    if (!readLinked(pointer, before)) {
      report_.add("the deleted-record list is broken: at %" PRIu32 " there is not its node number %" PRIu64, pointer,
                  nodes_ + 1);
      nodes_ = nodesByCount();
      return false;
    }
    before = offsetOfPointer(pointer, index_.recordNumbers) / nodeSize;
    pointer = index_.area.deletedNode.next;
    total_ += index_.area.deletedNode.count;
  }
  return isComplete(before);
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

void DeletedListCheck::take(std::uint64_t lfa, std::uint64_t position) {
  if (!comparable_) return;
  const auto wanted = static_cast<std::uint32_t>(position);
  const auto order = [wanted](std::uint32_t found) { return found < wanted ? -1 : found > wanted ? 1 : 0; };
  if (positions_.find(order, [this](std::uint32_t found) { addSurplus(found); }) == nullptr) {
    report_.add("LFA %" PRIu64 ": the deleted record is not in the list", lfa);
  }
}

void DeletedListCheck::finish() {
  positions_.finish([this](std::uint32_t position) { addSurplus(position); });
}

void DeletedListCheck::checkAlone(std::uint64_t places, PositionSet& used) {
  std::uint32_t before = 0;
  std::uint32_t position = 0;
  for (bool first = true; nextPosition(position); first = false) {
    if (position >= places) {
      report_.add("the deleted-record list has position %" PRIu32 " of %" PRIu64, position, places);
    } else if (!first && position <= before) {
      report_.add("the deleted-record list has position %" PRIu32 " behind position %" PRIu32, position, before);
    }
    used.add(position);
    before = position;
  }
}

}  // namespace tarnvale
