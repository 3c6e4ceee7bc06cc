// Random index files: opened, walked from the first entry to the last, and their deleted-record list copied.
//
// The input: a byte of choices, then the file, or what makes one that can be opened: key length, the flags of both
// kinds, the head of the deleted-record list, and all that stands behind the header.
#include <algorithm>
#include <cstring>

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

void walk(const IsiHandle& handle, std::uint64_t fileLength) {
  static IndexCursor cursor;
  startCursor(cursor, handle);
  std::uint64_t entriesLeft = (fileLength / nodeSize + 1) * handle.entriesPerNode;
  std::string before;
  IndexResult result = nextEntry(cursor);
  for (; result == IndexResult::done; result = nextEntry(cursor)) {
    demand(entriesLeft-- > 0, "a walk gives no more entries than the file has");
    const IndexCursor::PathStep& step = cursor.path[cursor.depth];
    demand(step.entry < step.node->count && step.node->count <= handle.entriesPerNode, "an entry stands in its node");
    const std::string key(reinterpret_cast<const char*>(isiEntryKey(cursor.entry)), handle.keyLength);
    demand(before <= key, "keys ascend");
    before = key;
  }
  demand(result != IndexResult::endOfIndex || nextEntry(cursor) == IndexResult::endOfIndex, "the end stays the end");
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
  walk(handle, file.size());
  const bool inPlace = chosen(choice::copyInPlace);
  copyFile.fill({});
  copyDeletedList(handle, inPlace ? indexFile.fd() : copyFile.fd(), inPlace);
  return 0;
}
