// Random index files: opened, walked from the first entry to the last, looked up and walked from there in both
// directions, and their deleted-record list copied.
//
// The input: a byte of choices, then the file, or what makes one that can be opened: key length, the flags of both
// kinds, the head of the deleted-record list, and all that stands behind the header.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/posix_file.h"
#include "fuzz_support.h"
#include "isi/deleted_list_copy.h"
#include "isi/index_cursor.h"

namespace tarnvale {
namespace {

enum Choice : std::uint8_t { makeHeader = 1, bigEndian = 2, keylessAllowed = 4, copyInPlace = 8 };
constexpr std::size_t makingSize = 7;  // bytes that make a header

// `swapped`: in the other byte order, as far as whole nodes go.
std::string madeFile(std::string_view input, bool swapped) {
  if (input.size() < makingSize) return {};
  IsiHeader header{};
  header.magic = {'S', 'I', 'S', 'I'};
  header.versionWord = isiVersion;
  header.keyLength = static_cast<std::uint16_t>(byteAt(input, 0) % (maxKeyLength + 1));
  header.recordFlags = byteAt(input, 1);
  const bool byOffset = (header.recordFlags & record_flag::byOffset) != 0;
  header.indexFlags = static_cast<std::uint8_t>((byteAt(input, 2) & ~index_flag::recordNumbers) | (byOffset ? 0 : 1));
  std::memcpy(&header.deletedListHead, input.data() + 3, sizeof header.deletedListHead);
  const std::uint32_t entrySize = isiEntrySize(header.keyLength);
  if (swapped) {
    swapHeader(header);
    swapBytes(header.versionWord);
  }
  std::string file(reinterpret_cast<const char*>(&header), sizeof header);
  file += input.substr(makingSize);
  for (std::size_t offset = rootOffset; swapped && offset + nodeSize <= file.size(); offset += nodeSize) {
    auto& list = *reinterpret_cast<DeletedRecordNode*>(&file[offset]);
    const bool isOfList = list.signature[1] == DeletedRecordNode::signature2;
    isOfList ? swapDeletedNode(list, false) : swapNode(*reinterpret_cast<IsiNode*>(&file[offset]), entrySize);
  }
  return file;
}

// The keys that a walk has met, in ascending order, and whether it came to the end.
struct Walk {
  std::vector<std::string> keys;
  bool whole;
};

Walk walkOn(IndexCursor& cursor, bool backwards) {
  Walk walk{};
  const IsiHandle& handle = *cursor.handle;
  const std::uint64_t mostEntries = (fileSize(handle.fd).value_or(0) / nodeSize + 1) * handle.entriesPerNode;
  const auto step = [&] { return backwards ? previousEntry(cursor) : nextEntry(cursor); };
  IndexResult result = IndexResult::done;
  while ((result = step()) == IndexResult::done) {
    demand(walk.keys.size() < mostEntries, "a walk gives no more entries than the file has");
    walk.keys.emplace_back(reinterpret_cast<const char*>(isiEntryKey(cursor.entry)), handle.keyLength);
  }
  if (backwards) std::ranges::reverse(walk.keys);
  demand(std::ranges::is_sorted(walk.keys), "keys ascend");
  walk.whole = result == IndexResult::endOfIndex;
  demand(!walk.whole || step() == IndexResult::endOfIndex, "the end stays the end");
  return walk;
}

// Looks for a key among those of the walk from the beginning, or where that went wrong among unknown ones.
void lookUp(IndexCursor& cursor, const Walk& all, const std::string& key) {
  for (const bool behind : {false, true}) {
    const auto isLeft = [&](const std::string& other) { return other.compare(0, key.size(), key) < (behind ? 1 : 0); };
    const auto place = std::ranges::partition_point(all.keys, isLeft);
    for (const bool backwards : {false, true}) {
      if ((behind ? seekBehind : seekBefore)(cursor, *cursor.handle, key) != IndexResult::done) continue;
      const Walk found = walkOn(cursor, backwards);
      const bool same = backwards ? std::equal(found.keys.begin(), found.keys.end(), all.keys.begin(), place)
                                  : std::equal(found.keys.begin(), found.keys.end(), place, all.keys.end());
      demand(!all.whole || (found.whole && same), "from a key on both directions give the entries of a walk");
    }
  }
}

void copyDeletedList(IsiHandle& handle, int target, bool inPlace) {
  static Messages messages;
  static std::array<std::uint8_t, outputBufferSize> buffer;
  const DeletedRecordNode first = handle.area.deletedNode;
  const ListCopyResult checked = checkDeletedList(handle);
  demand(std::memcmp(&first, &handle.area.deletedNode, sizeof first) == 0, "a check leaves the header area alone");
  if (checked != ListCopyResult::done) return;
  IndexOutput output;
  startOutput(output, FileRole::index, target, buffer.data(), handle.recordNumbers);
  std::uint32_t count = 0;
  demand(carryDeletedList(handle, output, inPlace, count, messages) == ListCopyResult::done,
         "a list found whole can be copied");
  const std::uint64_t end = fileSize(target).value_or(0);
  demand(end % nodeSize == 0 && end > deletedListOffset, "the output ends behind the list");
  demand(count <= (end - deletedListOffset) / nodeSize * DeletedRecordNode::capacity, "nodes have room for the list");
}

}  // namespace

void tryInput(std::string_view input) {
  static const ScratchFile indexFile("index.ISI");
  static const ScratchFile copyFile("copy.ISI");
  if (input.empty()) return;
  const auto chosen = [&](Choice bit) { return (byteAt(input, 0) & bit) != 0; };
  const std::string_view rest = input.substr(1);
  const std::string file = chosen(makeHeader) ? madeFile(rest, chosen(bigEndian)) : std::string(rest);
  indexFile.fill(file);

  static IndexCursor cursor;
  IsiHandle handle;
  handle.keylessAllowed = chosen(keylessAllowed);
  if (openIndex(handle, indexFile.fd()) != IndexResult::done) return;
  demand(handle.keyLength <= maxKeyLength, "a key has a length that is allowed");
  demand(handle.entriesPerNode * handle.entrySize <= IsiNode::entryBytes, "entries fit their node");
  startCursor(cursor, handle);
  const Walk all = walkOn(cursor, false);
  std::vector<std::string> sought = {"", file.substr(rootOffset + sizeof(IsiEntryHead), handle.keyLength / 2)};
  if (!all.keys.empty()) sought.push_back(all.keys[static_cast<std::uint8_t>(file.back()) % all.keys.size()]);
  for (const std::string& key : sought) lookUp(cursor, all, key);
  copyFile.fill({});
  copyDeletedList(handle, (chosen(copyInPlace) ? indexFile : copyFile).fd(), chosen(copyInPlace));
}

}  // namespace tarnvale
