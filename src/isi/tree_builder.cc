// The one idea: only the right edge of the tree is in memory, one node image per level. A full image goes to the end of
// the file and the next key rises one level, where the node just written becomes its left child; so no node is ever
// read back or written twice.
//
//   two entries to a node, keys 1 to 8, just before 8 comes:
//      level 1   3 6        the 3 has the leaf 1 2 on its left, the 6 the leaf 4 5
//      level 0   7          then 8 joins it, 9 would rise to level 1, which is full, and from there to level 2
#include "isi/tree_builder.h"

#include <cinttypes>
#include <cstring>

#include "common/copy_short.h"
#include "common/posix_file.h"
#include "format/sort_entry.h"

namespace tarnvale {

namespace {

// True when the key equals that of the entry before. The last byte tells most keys apart.
bool isDuplicate(const TreeBuilder& tree, const std::uint8_t* entry) {
  if (tree.previousKey == nullptr || tree.keyLength == 0) return tree.previousKey != nullptr;
  const std::size_t last = tree.keyLength - 1;
  return tree.previousKey[last] == entryKey(entry)[last] && equalShort(tree.previousKey, entryKey(entry), last);
}

// Puts the entry at the end of the level's image, with `child` as its left child; it becomes the entry before. Its
// bytes stay where they are until another entry takes that place.
void appendEntry(TreeBuilder& tree, bool recordNumbers, IsiNode& node, std::uint32_t child, const std::uint8_t* entry,
                 std::uint16_t number) {
  const std::uint64_t lfa = entryLfa(entry);
  const std::uint16_t recordLength = entryRecordLength(entry);
  std::uint8_t* const place = node.entries.data() + std::size_t{node.count} * tree.entrySize;
  IsiEntryHead head;
  head.position = static_cast<std::uint32_t>(recordNumbers ? lfa / recordLength : lfa);
  head.leftChild = child;
  head.duplicateNumber = number;
  head.recordLength = recordLength;
  std::memcpy(place, &head, sizeof head);
  copyShort(place + sizeof head, entryKey(entry), tree.keyLength);
  ++node.count;
  tree.previousKey = place + sizeof head;
  tree.previousDuplicateNumber = number;
}

// Appends the level's image to the file and empties it. False, and a message, when that fails.
bool writeLevelNode(IndexOutput& output, IsiNode& node, Messages& messages) {
  if (!advanceNodePointer(output, messages) || !putNode(output, node, messages)) return false;
  node.count = 0;
  return true;
}

TreeResult reportLevelLimit(IndexBuilder& builder, TrackedFile& errorFile, Messages& messages) {
  FixedText<300> text;
  text.format("\nError! Tree level limit (%zu) can only support %" PRIu64 " records for this ISI file! ", maxTreeLevels,
              treeCapacity(builder.tree.fillLimit));
  messages.buffer = text;
  putErrorFileLine(builder.duplicates, errorFile, messages, text);
  return TreeResult::tooHigh;
}

// What an entry meets besides the tree.
struct EntryContext {
  const Settings& settings;
  TrackedFile& errorFile;
  Messages& messages;
};

void report(IndexBuilder& builder, const std::uint8_t* entry, const EntryContext& context) {
  reportDuplicate(builder.duplicates, context.errorFile, context.messages, context.settings, entry,
                  builder.tree.keyLength);
}

// The number that the entry gets among those with the same key.
std::uint16_t numberDuplicate(IndexBuilder& builder, const std::uint8_t* entry, const EntryContext& context) {
  report(builder, entry, context);
  ++builder.duplicates.duplicates;
  return static_cast<std::uint16_t>(builder.tree.previousDuplicateNumber + 1);
}

// Finds the lowest level with room; each full one below it is written and becomes the child of the next.
TreeResult insert(IndexBuilder& builder, const std::uint8_t* entry, bool duplicate, const EntryContext& context) {
  TreeBuilder& tree = builder.tree;
  std::uint32_t child = 0;
  for (std::size_t level = 0; level < maxTreeLevels; ++level) {
    if (tree.topLevel < level) tree.topLevel = level;
    IsiNode& node = tree.levels[level];
    if (node.count < tree.fillLimit) {
      const std::uint16_t number = duplicate ? numberDuplicate(builder, entry, context) : std::uint16_t{0};
      appendEntry(tree, builder.output.recordNumbers, node, child, entry, number);
      return TreeResult::done;
    }
    node.rightChild = child;
    if (!writeLevelNode(builder.output, node, context.messages)) return TreeResult::indexNotWritten;
    child = builder.output.lastNodePointer;
  }
  return reportLevelLimit(builder, context.errorFile, context.messages);
}

// An entry whose key equals the one before is left out where such entries are to be ignored.
TreeResult dropDuplicate(IndexBuilder& builder, const std::uint8_t* entry, const EntryContext& context) {
  report(builder, entry, context);
  ++builder.duplicates.dropped;
  return TreeResult::done;
}

void reportLength(const TreeBuilder& tree, const std::uint8_t* entry, int number, const char* kind,
                  Messages& messages) {
  if (!messages.debugMode) return;
  putFormatted(messages, "\nWriteTagRecord(%d):\n1st %s Rec Length:%d at LFA:0x%.8lX Max Allowed RecordLength:%u!\n",
               number, kind, entryRecordLength(entry),
               static_cast<unsigned long>(static_cast<std::uint32_t>(entryLfa(entry))), tree.recordLength);
}

// A record of another length than the others: noted, and reported the first time.
void noteIrregularLength(TreeBuilder& tree, const std::uint8_t* entry, Messages& messages) {
  if (entryRecordLength(entry) < tree.recordLength) {
    if (!tree.shortRecordReported) reportLength(tree, entry, 1, "Short", messages);
    tree.shortRecordReported = true;
  } else {
    if (!tree.findings.overlongRecord) reportLength(tree, entry, 2, "Long", messages);
    tree.findings.overlongRecord = true;
  }
  tree.findings.variableLength = true;
  tree.findings.invalidPosition = false;
}

// The partly filled nodes, from the leaf up; each is the right child of the one above. False when a write failed.
bool writeOpenNodes(IndexBuilder& builder, std::uint32_t& child, Messages& messages) {
  for (std::size_t level = 0; level < builder.tree.topLevel; ++level) {
    IsiNode& node = builder.tree.levels[level];
    node.rightChild = child;
    if (node.count == 0) continue;
    if (!writeLevelNode(builder.output, node, messages)) return false;
    child = builder.output.lastNodePointer;
  }
  return flushNodes(builder.output, messages);
}

}  // namespace

void startTree(IndexBuilder& builder, std::uint32_t keyLength, std::uint32_t fillPercent) {
  TreeBuilder& tree = builder.tree;
  tree.keyLength = keyLength;
  tree.entrySize = isiEntrySize(keyLength);
  tree.fillLimit = entriesPerNode(tree.entrySize) * fillPercent / 100;
  builder.output.entrySize = tree.entrySize;
  std::uint16_t level = 0;
  for (IsiNode& node : tree.levels) node.level = level++;
}

TreeResult writeTagRecord(IndexBuilder& builder, const std::uint8_t* entry, const Settings& settings,
                          TrackedFile& errorFile, Messages& messages) {
  TreeBuilder& tree = builder.tree;
  const std::uint32_t length = entryRecordLength(entry);
  if (length != tree.recordLength) [[unlikely]] {
    if (tree.recordLength == 0) {
      tree.recordLength = length;
    } else {
      noteIrregularLength(tree, entry, messages);
    }
  }
  const EntryContext context{settings, errorFile, messages};
  const bool duplicate = isDuplicate(tree, entry);
  if (duplicate && settings.ignoreDuplicates) return dropDuplicate(builder, entry, context);
  return insert(builder, entry, duplicate, context);
}

bool finishLevels(IndexBuilder& builder, Messages& messages) {
  std::uint32_t child = 0;
  if (!writeOpenNodes(builder, child, messages)) return false;
  if (!seekTo(builder.output.fd(), rootOffset)) return false;
  IsiNode& root = builder.tree.levels[builder.tree.topLevel];
  root.rightChild = child;
  return putNode(builder.output, root, messages) && flushNodes(builder.output, messages);
}

}  // namespace tarnvale
