// The one idea: only the right edge of the tree is in memory, one node image per level. A full image goes to the end of
// the file and the next key rises one level, where the node just written becomes its left child; so no node is ever
// read back or written twice.
//
//   two entries to a node, keys 1 to 8, just before 8 comes:
//      level 1   3 6        the 3 has the leaf 1 2 on its left, the 6 the leaf 4 5
//      level 0   7          then 8 joins it, 9 would rise to level 1, which is full, and from there to level 2
#include "isi/tree_builder.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "common/output.h"
#include "common/posix_file.h"
#include "isi/error_file.h"
#include "isi/node_writer.h"
#include "sort/work_file.h"

namespace tarnvale {

namespace {

constexpr std::size_t nodeImages = maxTreeLevels + 1;  // one per level, and the pending deleted-record node

IsiNode& levelNode(RunContext& run, std::int32_t level) { return reinterpret_cast<IsiNode*>(run.levelBuffers)[level]; }

// True when the key equals that of the entry before. The last byte tells most keys apart.
bool isDuplicate(const RunContext& run, const std::uint8_t* entry) {
  if (run.previousKey == nullptr || run.indexKeyLength == 0) return run.previousKey != nullptr;
  const std::size_t last = run.indexKeyLength - 1;
  return run.previousKey[last] == entryKey(entry)[last] && std::memcmp(run.previousKey, entryKey(entry), last) == 0;
}

// Puts the entry at the end of the level's image, with `child` as its left child; it becomes the entry before. Its
// bytes stay where they are until another entry takes that place.
void appendEntry(RunContext& run, IsiNode& node, std::uint32_t child, const std::uint8_t* entry, std::uint16_t number) {
  const std::uint64_t lfa = entryLfa(entry);
  const std::uint16_t recordLength = entryRecordLength(entry);
  std::uint8_t* const place = node.entries.data() + std::size_t{node.count} * run.indexEntrySize;
  IsiEntryHead head;
  head.position = static_cast<std::uint32_t>(run.recordNumberAddressing ? lfa / recordLength : lfa);
  head.leftChild = child;
  head.duplicateNumber = number;
  head.recordLength = recordLength;
  std::memcpy(place, &head, sizeof head);
  copyShort(place + sizeof head, entryKey(entry), run.indexKeyLength);
  ++node.count;
  run.previousKey = place + sizeof head;
  run.previousDuplicateNumber = number;
}

// Appends the level's image to the file and empties it. False, and a message, when that fails.
bool writeLevelNode(RunContext& run, IsiNode& node) {
  if (!advanceNodePointer(run) || !putNode(run, node)) return false;
  node.count = 0;
  return true;
}

StatusCode reportLevelLimit(RunContext& run) {
  std::uint64_t capacity = 1;
  for (std::int32_t level = 0; level < maxTreeLevels; ++level) capacity *= run.fillLimit + 1;
  FixedText<300> text;
  text.format("\nError! Tree level limit (%d) can only support %" PRIu64 " records for this ISI file! ", maxTreeLevels,
              capacity - 1);
  putErrorFileLine(run, text);
  run.messageBuffer = text;
  return status::treeTooHigh;
}

// The number that the entry gets among those with the same key.
std::uint16_t numberDuplicate(RunContext& run, const std::uint8_t* entry) {
  reportDuplicate(run, entry);
  ++run.duplicateKeyCount;
  return static_cast<std::uint16_t>(run.previousDuplicateNumber + 1);
}

// Finds the lowest level with room; each full one below it is written and becomes the child of the next.
StatusCode insert(RunContext& run, const std::uint8_t* entry, bool duplicate) {
  std::uint32_t child = 0;
  for (std::int32_t level = 0; level < maxTreeLevels; ++level) {
    if (run.topLevel < level) run.topLevel = level;
    IsiNode& node = levelNode(run, level);
    if (node.count < run.fillLimit) {
      appendEntry(run, node, child, entry, duplicate ? numberDuplicate(run, entry) : std::uint16_t{0});
      return status::success;
    }
    node.rightChild = child;
    if (!writeLevelNode(run, node)) return status::writeFailed;
    child = run.lastNodePointer;
  }
  return reportLevelLimit(run);
}

// An entry whose key equals the one before is left out where such entries are to be ignored.
StatusCode dropDuplicate(RunContext& run, const std::uint8_t* entry) {
  reportDuplicate(run, entry);
  ++run.droppedDuplicateCount;
  return status::success;
}

void reportLength(RunContext& run, const std::uint8_t* entry, int number, const char* kind) {
  if (!run.debugMode) return;
  putFormatted(run, "\nWriteTagRecord(%d):\n1st %s Rec Length:%d at LFA:0x%.8lX Max Allowed RecordLength:%d!\n", number,
               kind, entryRecordLength(entry), static_cast<unsigned long>(static_cast<std::uint32_t>(entryLfa(entry))),
               run.foundRecordLength);
}

// A record of another length than the others: noted, and reported the first time.
void noteIrregularLength(RunContext& run, const std::uint8_t* entry) {
  if (entryRecordLength(entry) < run.foundRecordLength) {
    if (!run.shortRecordReported) reportLength(run, entry, 1, "Short");
    run.shortRecordReported = true;
  } else {
    if (!run.recordSizeInvalid) reportLength(run, entry, 2, "Long");
    run.recordSizeInvalid = true;
  }
  run.variableLengthFound = true;
  run.invalidRecordPosition = false;
}

void settleRecordLength(RunContext& run, const std::uint8_t* entry) {
  constexpr std::int32_t smallestMaxRecord = 256;
  run.foundRecordLength = run.recordLengthSpec != 0 ? run.recordLengthSpec : entryRecordLength(entry);
  if (run.recordLengthSpec == 0 && run.variableLengthAllowed && run.foundRecordLength < smallestMaxRecord) {
    run.foundRecordLength = smallestMaxRecord;
  }
}

// The partly filled nodes, from the leaf up; each is the right child of the one above. False when a write failed.
bool writeOpenNodes(RunContext& run, std::uint32_t& child) {
  for (std::int32_t level = 0; level < run.topLevel; ++level) {
    IsiNode& node = levelNode(run, level);
    node.rightChild = child;
    if (node.count == 0) continue;
    if (!writeLevelNode(run, node)) return false;
    child = run.lastNodePointer;
  }
  if (WorkFileFlush(run, run.outputFd) == status::success) return true;
  reportIndexWriteFailure(run);
  return false;
}

}  // namespace

StatusCode startTree(RunContext& run, std::uint32_t keyLength) {
  run.indexKeyLength = keyLength;
  run.indexEntrySize = isiEntrySize(keyLength);
  run.fillLimit = entriesPerNode(run.indexEntrySize) * run.maxFillPercent / 100;
  run.topLevel = 0;
  run.previousListPointer = noPointer;
  run.lastNodePointer = pointerToOffset(deletedListOffset, run.recordNumberAddressing);
  run.levelBuffers = static_cast<std::uint8_t*>(std::calloc(nodeImages, nodeSize));
  if (run.levelBuffers == nullptr) {
    PutMessage(run, "ISI buffer allocation failed.\n");
    return status::outOfMemory;
  }
  for (std::int32_t level = 0; level < maxTreeLevels; ++level) {
    levelNode(run, level).level = static_cast<std::uint16_t>(level);
  }
  return status::success;
}

StatusCode WriteTagRecord(RunContext& run, const std::uint8_t* entry) {
  if (run.foundRecordLength == 0) {
    settleRecordLength(run, entry);
  } else if (entryRecordLength(entry) != run.foundRecordLength) {
    noteIrregularLength(run, entry);
  }
  const bool duplicate = isDuplicate(run, entry);
  return duplicate && run.ignoreDuplicatesForNodup ? dropDuplicate(run, entry) : insert(run, entry, duplicate);
}

StatusCode finishLevels(RunContext& run) {
  std::uint32_t child = 0;
  if (!writeOpenNodes(run, child)) return status::indexNotWritten;
  if (!seekTo(run.outputFd, rootOffset)) return status::indexNotWritten;
  IsiNode& root = levelNode(run, run.topLevel);
  root.rightChild = child;
  if (!putNode(run, root)) return status::indexNotWritten;
  if (WorkFileFlush(run, run.outputFd) == status::success) return status::success;
  reportIndexWriteFailure(run);
  return status::indexNotWritten;
}

DeletedRecordNode& pendingDeletedNode(RunContext& run) {
  return reinterpret_cast<DeletedRecordNode*>(run.levelBuffers)[maxTreeLevels];
}

}  // namespace tarnvale
