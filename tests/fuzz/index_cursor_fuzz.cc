// Random index files: opened, walked from the first entry to the last, looked up and walked from there in both
// directions, and their deleted-record list copied.
//
// The input: a byte of choices, then the file, or what makes one that can be opened: key length, the flags of both
// kinds, the head of the deleted-record list, and all that stands behind the header.
#include <algorithm>
#include <cstring>
#include <vector>

#include "common/posix_file.h"
#include "fuzz_support.h"
#include "isi/deleted_list_copy.h"
#include "isi/index_cursor.h"

namespace tarnvale {
namespace {

namespace choice {
constexpr std::uint8_t makeHeader = 1;
constexpr std::uint8_t bigEndian = 2;
constexpr std::uint8_t keylessAllowed = 4;
constexpr std::uint8_t copyInPlace = 8;
}  // namespace choice

constexpr std::size_t makingSize = 7;  // bytes that make a header

// Brings what stands behind a header into the other byte order.
void swapNodes(std::string& file, std::uint32_t entrySize) {
  for (std::size_t offset = rootOffset; offset + nodeSize <= file.size(); offset += nodeSize) {
    DeletedRecordNode& deleted = *reinterpret_cast<DeletedRecordNode*>(file.data() + offset);
    if (deleted.signature[1] == DeletedRecordNode::signature2) {
      swapDeletedNode(deleted, false);
    } else {
      swapNode(*reinterpret_cast<IsiNode*>(file.data() + offset), entrySize);
    }
  }
}

std::string madeFile(std::string_view input, bool bigEndian) {
  if (input.size() < makingSize) return {};
  const auto byteAt = [&](std::size_t i) { return static_cast<std::uint8_t>(input[i]); };
  IsiHeader header{};
  std::memcpy(header.magic.data(), "SISI", header.magic.size());
  header.versionWord = isiVersion;
  header.keyLength = static_cast<std::uint16_t>(byteAt(0) % (maxKeyLength + 1));
  header.recordFlags = byteAt(1);
  const bool byOffset = (header.recordFlags & record_flag::byOffset) != 0;
  header.indexFlags = static_cast<std::uint8_t>((byteAt(2) & ~index_flag::recordNumbers) | (byOffset ? 0 : 1));
  std::memcpy(&header.deletedListHead, input.data() + 3, sizeof header.deletedListHead);
  std::string file(reinterpret_cast<const char*>(&header), sizeof header);
  file.append(input.substr(makingSize));
  if (bigEndian) {
    swapNodes(file, isiEntrySize(header.keyLength));
    swapHeader(header);
    swapBytes(header.versionWord);
    std::memcpy(file.data(), &header, sizeof header);
  }
  return file;
}

std::string keyOf(const IndexCursor& cursor) {
  return {reinterpret_cast<const char*>(isiEntryKey(cursor.entry)), cursor.handle->keyLength};
}

// What holds of an entry that the cursor has moved to.
void checkEntry(const IndexCursor& cursor) {
  const IndexCursor::PathStep& step = cursor.path[cursor.depth];
  demand(step.node->count >= 1 && step.node->count <= cursor.handle->entriesPerNode, "a node has a possible count");
  demand(step.entry <= step.node->count, "an entry stands in its node");
  for (std::uint32_t depth = 0; depth < cursor.depth; ++depth) {
    const IndexCursor::PathStep& above = cursor.path[depth];
    const std::uint8_t* const entry = above.node->entries.data() + std::size_t{above.entry} * cursor.entrySize;
    const std::uint32_t child =
        above.entry == above.node->count ? std::uint32_t{above.node->rightChild} : entryHead(entry).leftChild;
    const std::uint64_t offset = offsetOfPointer(child, cursor.handle->recordNumbers);
    demand(offset >= headerAreaSize && offset % nodeSize == 0, "a node below the root lies behind the header area");
  }
}

// Walks on to the end; the keys that it has met, the last one first when it goes backwards, and whether there was an
// end.
std::vector<std::string> walk(IndexCursor& cursor, bool backwards, std::uint64_t fileLength, bool& whole) {
  std::uint64_t entriesLeft = (fileLength / nodeSize + 1) * cursor.handle->entriesPerNode;
  std::vector<std::string> keys;
  const auto step = [&] { return backwards ? previousEntry(cursor) : nextEntry(cursor); };
  IndexResult result = step();
  for (; result == IndexResult::done; result = step()) {
    demand(entriesLeft-- > 0, "a walk gives no more entries than the file has");
    checkEntry(cursor);
    keys.push_back(keyOf(cursor));
    if (keys.size() == 1) continue;
    const std::string& before = keys[keys.size() - 2];
    demand(backwards ? keys.back() <= before : before <= keys.back(), "keys ascend");
  }
  whole = result == IndexResult::endOfIndex;
  demand(!whole || step() == IndexResult::endOfIndex, "the end stays the end");
  return keys;
}

// Looks for a key among those that the walk has met, or where it went wrong among unknown ones.
void lookUp(IndexCursor& cursor, const IsiHandle& handle, const std::vector<std::string>& keys, bool wholeWalk,
            const std::string& key, std::uint64_t fileLength) {
  for (const bool behind : {false, true}) {
    for (const bool backwards : {false, true}) {
      if ((behind ? seekBehind : seekBefore)(cursor, handle, key) != IndexResult::done) continue;
      bool whole = false;
      std::vector<std::string> found = walk(cursor, backwards, fileLength, whole);
      if (!wholeWalk) continue;
      const auto isLeft = [&](const std::string& other) {
        return behind ? other.compare(0, key.size(), key) <= 0 : other.compare(0, key.size(), key) < 0;
      };
      const auto place = std::ranges::partition_point(keys, isLeft);
      if (backwards) std::ranges::reverse(found);
      const auto [first, last] = backwards ? std::pair(keys.begin(), place) : std::pair(place, keys.end());
      demand(whole && std::equal(found.begin(), found.end(), first, last),
             "from a key on both directions give the entries of a walk");
    }
  }
}

void copyDeletedList(IsiHandle& handle, int target, bool inPlace) {
  static Messages messages;
  const DeletedRecordNode first = handle.area.deletedNode;
  const ListCopyResult checked = checkDeletedList(handle);
  demand(std::memcmp(&first, &handle.area.deletedNode, sizeof first) == 0, "a check leaves the header area alone");
  if (checked != ListCopyResult::done) return;
  IndexOutput output;
  startOutput(output, FileRole::index, target, nullptr, handle.recordNumbers);
  std::uint32_t count = 0;
  demand(carryDeletedList(handle, output, inPlace, count, messages) == ListCopyResult::done,
         "a list found whole can be copied");
  const std::uint64_t end = fileSize(target).value_or(0);
  demand(end % nodeSize == 0 && end > deletedListOffset, "the output ends behind the list");
  demand(count <= (end - deletedListOffset) / nodeSize * DeletedRecordNode::capacity, "nodes have room for the list");
}

}  // namespace
}  // namespace tarnvale

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarnvale;
  static const ScratchFile indexFile("index.ISI");
  static const ScratchFile copyFile("copy.ISI");
  if (size == 0) return 0;
  const auto chosen = [&](std::uint8_t bit) { return (data[0] & bit) != 0; };
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string file = chosen(choice::makeHeader) ? madeFile(input, chosen(choice::bigEndian)) : std::string(input);
  indexFile.fill(file);

  static IsiHandle handle;
  handle = {};
  handle.keylessAllowed = chosen(choice::keylessAllowed);
  if (openIndex(handle, indexFile.fd()) != IndexResult::done) return 0;
  demand(handle.keyLength <= maxKeyLength, "a key has a length that is allowed");
  demand(handle.entriesPerNode * handle.entrySize <= IsiNode::entryBytes, "entries fit their node");
  static IndexCursor cursor;
  startCursor(cursor, handle);
  bool whole = false;
  const std::vector<std::string> keys = walk(cursor, false, file.size(), whole);
  lookUp(cursor, handle, keys, whole, "", file.size());
  lookUp(cursor, handle, keys, whole, std::string(file, rootOffset + sizeof(IsiEntryHead), handle.keyLength / 2),
         file.size());
  if (!keys.empty())
    lookUp(cursor, handle, keys, whole, keys[static_cast<std::uint8_t>(file.back()) % keys.size()], file.size());
  const bool inPlace = chosen(choice::copyInPlace);
  copyFile.fill({});
  copyDeletedList(handle, inPlace ? indexFile.fd() : copyFile.fd(), inPlace);
  return 0;
}
