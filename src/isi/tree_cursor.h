// The tree cursor: an existing index walked in key order, and its records read and written in the file's byte order.
//
// All operations return 0 or a negative code: -1 a node offset that is no multiple of 512 or a short write, -3 a short
// read, -4 more than 19 nodes on the path, -5 the tree is inconsistent, -6 the end of the index, -8 and -9 a
// deleted-record node without signature or with a wrong count, -102 the header area cannot be read.
#pragma once

#include <array>
#include <cstdint>

#include "common/status_code.h"
#include "isi/isi_format.h"

namespace tarnvale {

inline constexpr std::size_t maxPathDepth = 19;

/// An open index. It keeps the first 2048 bytes of the file; the root is read from there, and pointer 0 stands for it.
struct IsiHandle {
  /// A node on the path to the current one, and the child that was entered there.
  struct PathStep {
    std::uint32_t child;  // of entry number `child`, counted from 0; the count of entries stands for the right child
    IsiNode node;         // kept, so that going up reads nothing
  };

  /// A piece of the file that nodes are taken from: one after the other they lie side by side.
  static constexpr std::size_t blockSize = 32768;

  int fd = -1;  // of the open file; not owned
  bool bigEndian = false;
  bool recordNumbers = false;   // pointers are node numbers
  bool keylessAllowed = false;  // an index without key columns is opened too
  bool beforeFirst = true;
  bool atEnd = false;
  std::uint32_t savedSpinCounter = 0;
  std::uint32_t keyLength = 0;
  std::uint32_t entrySize = 0;
  std::uint32_t entriesPerNode = 0;
  std::uint64_t nodesEntered = 0;  // from above; no tree has more than the file has nodes
  std::uint64_t nodesInFile = 0;
  std::uint32_t entryIndex = 0;  // of the current entry, counted from 0
  std::uint32_t pathDepth = 0;
  std::array<PathStep, maxPathDepth> path{};
  IsiNode node{};
  std::uint64_t blockStart = 0;   // file offset of the block in memory
  std::uint64_t blockLength = 0;  // bytes of it, 0 at first
  std::array<std::uint8_t, blockSize> block{};
  IsiHeaderArea area{};
  std::array<std::uint8_t, isiEntrySize(maxKeyLength)> entry{};  // copy of the entry delivered last
};

/// Reads the header area and takes the geometry of the index from it. -102: short, without the magic, or with a key
/// length that no index has; -162: of another version.
[[nodiscard]] StatusCode openIndex(IsiHandle& handle, int fd);

/// Re-reads the header area, which another process may have changed before the locks were granted: the change counter
/// alone does not tell, it is the same again after two changes. -102 when that fails.
[[nodiscard]] StatusCode checkSpinCounter(IsiHandle& handle);

/// Copies the next entry in key order to `entry`.
[[nodiscard]] StatusCode nextEntry(IsiHandle& handle);

/// nextEntry; on success the change counter in memory becomes the saved one.
[[nodiscard]] StatusCode nextEntryAndRemember(IsiHandle& handle);

[[nodiscard]] inline const IsiEntryHead& entryHead(const std::uint8_t* entry) {
  return *reinterpret_cast<const IsiEntryHead*>(entry);
}
[[nodiscard]] inline const std::uint8_t* isiEntryKey(const std::uint8_t* entry) { return entry + sizeof(IsiEntryHead); }

/// Reads the node of the tree that the pointer names. -5: the pointer leads into the header area.
[[nodiscard]] StatusCode readTreeNode(const IsiHandle& handle, std::uint32_t pointer, IsiNode& node);

/// Reads a node of the deleted-record list into the header area and checks it.
[[nodiscard]] StatusCode readDeletedNode(IsiHandle& handle, std::uint32_t pointer);

/// Checks the deleted-record node in the header area.
[[nodiscard]] StatusCode checkDeletedNode(const IsiHandle& handle);

/// Write the header (at offset 0), a tree node, or the deleted-record node of the header area. -1 on a short write.
[[nodiscard]] StatusCode writeHeader(const IsiHandle& handle, int fd);
[[nodiscard]] StatusCode writeTreeNode(const IsiHandle& handle, int fd, std::uint64_t offset, const IsiNode& node);
[[nodiscard]] StatusCode writeDeletedNode(const IsiHandle& handle, int fd, std::uint64_t offset);

}  // namespace tarnvale
