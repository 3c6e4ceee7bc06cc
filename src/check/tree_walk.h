// The tree of an index walked in key order, every node being looked for where it has to be.
//
// The builder appends a node when it is full, so nodes lie in the file in the order in which a walk leaves them: behind
// all nodes below them. All nodes that are not on the right edge hold the same number of entries, the fill; so a whole
// subtree has a known number of nodes, and the place and level of each node follow from the fill and the length of the
// file. Every pointer, level and count is compared with that. A wrong pointer is one difference and not followed, a
// node cannot be used twice or left out without being seen, and no record of the nodes in use is kept.
//
//   fill 2, entries 1 to 9:    node 4: 1 2    node 5: 4 5    node 6: 7 8    node 7: 3 6    root: 9
//   node 7 has the nodes 4, 5 and 6 below it, the root has node 7 on its left and nothing on its right
#pragma once

#include <array>
#include <cstdint>

#include "check/report.h"
#include "isi/isi_handle.h"

namespace tarnvale {

/// An entry as it stands in the index.
struct FoundEntry {
  std::array<std::uint8_t, isiEntrySize(maxKeyLength)> bytes;
  std::uint64_t node;  // number of the node that holds it

  [[nodiscard]] const IsiEntryHead& head() const { return entryHead(bytes.data()); }
  [[nodiscard]] const std::uint8_t* key() const { return isiEntryKey(bytes.data()); }
};

/// The LFA that an entry stands for.
[[nodiscard]] inline std::uint64_t lfaOf(const IsiHandle& index, const FoundEntry& entry) {
  return lfaOf(index, entry.head());
}

[[nodiscard]] inline EntryPlace placeOf(const IsiHandle& index, const FoundEntry& entry) {
  return {{entry.key(), index.keyLength}, lfaOf(index, entry), entry.node};
}

/// What a walk has met.
struct TreeSize {
  std::uint64_t entries = 0;
  std::uint64_t nodes = 0;
  std::uint32_t levels = 0;
};

class TreeWalk {
 public:
  /// The nodes of the tree begin with node number `firstNode`; the root is node 2. A build fills them with `builtFill`
  /// entries, 0 when that is not known; a compaction with all that fit. Index and report must stay.
  TreeWalk(const IsiHandle& index, std::uint64_t firstNode, std::uint32_t builtFill, Report& report);

  /// The next entry in key order; false at the end, also when it is called again.
  bool next(FoundEntry& entry);
  [[nodiscard]] std::uint64_t entryCount() const { return entryCount_; }  // delivered so far
  [[nodiscard]] TreeSize size() const { return {entryCount_, nodeCount(), levelOf(nodeCount()) + 1}; }

 private:
  /// A node on the way down.
  struct Step {
    IsiNode node;
    std::uint64_t number;  // of the node
    std::uint64_t end;     // the nodes below it have smaller numbers
    std::uint32_t level;   // that it has to have
    std::uint32_t count;   // of its entries
    std::uint32_t entry;   // the next one to deliver
    bool edge;             // on the right edge of the tree
    bool belowDone;        // the child before the next entry has been walked
  };

  [[nodiscard]] bool readNode(std::uint64_t number, IsiNode& node) const;
  [[nodiscard]] std::uint32_t leftChild(const IsiNode& node, std::uint32_t entry) const;
  [[nodiscard]] std::uint32_t findFill(std::uint32_t builtFill) const;
  [[nodiscard]] std::uint64_t findEnd(const IsiNode& root);
  [[nodiscard]] std::uint64_t nodeCount() const { return end_ - firstNode_ + 1; }
  [[nodiscard]] std::uint32_t levelOf(std::uint64_t nodes) const;
  void enter(Step& step);
  void enterChild(const Step& parent);
  void leave(const Step& step);
  void noteUnused(std::uint64_t end);

  const IsiHandle& index_;
  Report& report_;
  std::uint64_t firstNode_;
  std::uint64_t nodesInFile_;
  std::uint32_t fill_;
  std::array<std::uint64_t, maxTreeLevels> subtreeNodes_{};  // nodes of a whole subtree, by the level of its top
  std::uint64_t end_ = 0;                                    // behind the last node of the tree
  std::uint64_t due_;                                        // the next node to be left
  std::uint64_t entryCount_ = 0;
  std::uint32_t depth_ = 0;
  std::array<Step, maxTreeLevels> path_;
};

}  // namespace tarnvale
