#include "check/tree_walk.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "common/posix_file.h"

namespace tarnvale {

namespace {

constexpr std::uint64_t rootNumber = rootOffset / nodeSize;
constexpr std::uint64_t beyondAnyFile = std::uint64_t{1} << 33;  // nodes: pointers have 32 bits

}  // namespace

TreeWalk::TreeWalk(const IsiHandle& index, std::uint64_t firstNode, std::uint32_t builtFill, Report& report)
    : index_(index),
      report_(report),
      firstNode_(firstNode),
      nodesInFile_(fileSize(index.fd).value_or(0) / nodeSize),
      fill_(findFill(builtFill)),
      due_(firstNode) {
  const std::uint64_t size = fileSize(index.fd).value_or(0);
  if (size % nodeSize != 0) report_.add("the file of %" PRIu64 " bytes ends inside a node", size);
  std::uint64_t below = 0;
  for (std::uint64_t& nodes : subtreeNodes_) {
    nodes = std::min(below * (fill_ + 1) + 1, beyondAnyFile);
    below = nodes;
  }
  end_ = findEnd(index.area.root);
  enter(path_[0] = {index.area.root, rootNumber, end_, levelOf(nodeCount()), 0, 0, true, false});
}

bool TreeWalk::readNode(std::uint64_t number, IsiNode& node) const {
  const std::uint64_t offset = number * nodeSize;
  return number < nodesInFile_ &&
         readTreeNode(index_, pointerToOffset(offset, index_.recordNumbers), node) == IndexResult::done;
}

std::uint32_t TreeWalk::leftChild(const IsiNode& node, std::uint32_t entry) const {
  return entryHead(node.entries.data() + std::size_t{entry} * index_.entrySize).leftChild;
}

// The first two nodes of the file are not on the right edge when a third one follows. Of three counts, two that agree
// are right. Where the fill of the build is known there are two choices.
std::uint32_t TreeWalk::findFill(std::uint32_t builtFill) const {
  std::array<std::uint32_t, 3> counts{};
  for (std::uint32_t i = 0; i < counts.size(); ++i) {
    IsiNode node;
    if (readNode(firstNode_ + i, node)) counts[i] = node.count;
  }
  const std::uint32_t fill = counts[1] != 0 && counts[1] == counts[2] ? counts[1] : counts[0];
  if (builtFill != 0) {
    const bool asBuilt = std::ranges::find(counts, builtFill) != counts.end();
    return fill != index_.entriesPerNode && asBuilt ? builtFill : index_.entriesPerNode;
  }
  return fill >= 1 && fill <= index_.entriesPerNode ? fill : index_.entriesPerNode;
}

// The level of the topmost of so many nodes: lower levels cannot hold them, and a higher one has a whole subtree below.
std::uint32_t TreeWalk::levelOf(std::uint64_t nodes) const {
  const auto level = std::ranges::lower_bound(subtreeNodes_, nodes) - subtreeNodes_.begin();
  return static_cast<std::uint32_t>(std::min<std::ptrdiff_t>(level, maxTreeLevels - 1));
}

// Behind the last node: the end of the file, unless the last pointer of the root names another place that fits its
// level. Then the file was cut, or something follows the tree.
std::uint64_t TreeWalk::findEnd(const IsiNode& root) {
  const std::uint64_t inFile = std::max(nodesInFile_, firstNode_);
  if (root.level >= maxTreeLevels || root.count > index_.entriesPerNode) return inFile;
  const std::uint64_t left = firstNode_ + (root.level == 0 ? 0 : root.count * subtreeNodes_[root.level - 1U]);
  const bool hasRight = root.rightChild != 0;
  const std::uint32_t pointer =
      hasRight || root.count == 0 ? std::uint32_t{root.rightChild} : leftChild(root, root.count - 1U);
  const std::uint64_t end = pointer != 0 ? offsetOfPointer(pointer, index_.recordNumbers) / nodeSize + 1 : firstNode_;
  const bool fits = (hasRight ? end > left : end == left) && levelOf(end - firstNode_ + 1) == root.level;
  if (end == inFile || !fits) return inFile;
  if (end > inFile) {
    report_.add("the tree has nodes up to number %" PRIu64 ", but the file ends with node %" PRIu64, end - 1,
                nodesInFile_ - 1);
    return end;
  }
  IsiNode last;
  if (hasRight && (!readNode(end - 1, last) || last.level != levelOf(end - left))) return inFile;
  report_.add("the nodes from number %" PRIu64 " on, behind the tree, are not used", end);
  return end;
}

// Compares the node just read with what it has to be, and decides how many entries are delivered.
void TreeWalk::enter(Step& step) {
  const bool empty = step.number == rootNumber && nodeCount() == 1;
  const std::uint32_t least = empty ? 0 : step.edge ? 1 : fill_;
  const std::uint32_t most = empty ? index_.entriesPerNode : fill_;
  const std::uint32_t count = step.node.count;
  if (count < least || count > most) {
    report_.add("node %" PRIu64 ": it has %u entries instead of %s%u", step.number, count, least < most ? "up to " : "",
                most);
  }
  if (step.node.level != step.level) {
    report_.add("node %" PRIu64 ": its level is %u instead of %u", step.number, unsigned{step.node.level}, step.level);
  }
  step.count = step.edge ? std::min(count, index_.entriesPerNode) : fill_;
  ++depth_;
}

void TreeWalk::enterChild(const Step& parent) {
  const bool right = parent.entry == parent.count;
  const bool edge = parent.edge && right;
  const std::uint32_t pointer = right ? std::uint32_t{parent.node.rightChild} : leftChild(parent.node, parent.entry);
  std::uint64_t number = 0;
  if (parent.level > 0) {
    number = due_ + subtreeNodes_[parent.level - 1] - 1;
    if (edge) number = parent.end > due_ ? parent.end - 1 : 0;
  }
  const std::uint32_t wanted = pointerToOffset(number * nodeSize, index_.recordNumbers);
  if (pointer != wanted || number >= parent.end) {
    report_.add("node %" PRIu64 ": its child %u of %u is at %u instead of %u", parent.number, parent.entry + 1,
                parent.count + 1, pointer, wanted);
  }
  if (number == 0 || number >= parent.end) return;

  const std::uint32_t level = edge ? std::min(levelOf(parent.end - due_), parent.level - 1) : parent.level - 1;
  Step& step = path_[depth_];
  step = {{}, number, number, level, 0, 0, edge, false};
  if (readNode(number, step.node)) {
    enter(step);
  } else {
    report_.add("node %" PRIu64 ": it cannot be read", number);
    due_ = number + 1;
  }
}

void TreeWalk::noteUnused(std::uint64_t end) {
  if (due_ == end - 1) report_.add("node %" PRIu64 ": it is not used", due_);
  if (due_ + 1 < end) report_.add("the nodes %" PRIu64 " to %" PRIu64 " are not used", due_, end - 1);
}

void TreeWalk::leave(const Step& step) {
  noteUnused(step.end);
  due_ = step.end + 1;
}

bool TreeWalk::next(FoundEntry& entry) {
  while (depth_ > 0) {
    Step& step = path_[depth_ - 1];
    if (!step.belowDone) {
      step.belowDone = true;
      enterChild(step);
    } else if (step.entry < step.count) {
      std::memcpy(entry.bytes.data(), step.node.entries.data() + std::size_t{step.entry} * index_.entrySize,
                  index_.entrySize);
      entry.node = step.number;
      ++step.entry;
      step.belowDone = false;
      ++entryCount_;
      return true;
    } else {
      leave(step);
      --depth_;
    }
  }
  return false;
}

}  // namespace tarnvale
