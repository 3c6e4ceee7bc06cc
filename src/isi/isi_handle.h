// An open index: its header area in memory, and its records read and written in the file's byte order.
#pragma once

#include <cstdint>

#include "format/isi_format.h"

namespace tarnvale {

/// What an operation on an existing index comes to.
enum class IndexResult : std::uint8_t {
  done,
  endOfIndex,  // the cursor is behind the last entry, or before the first
  notAnIndex,  // the header area is short, without its magic, or has a geometry that no index has
  versionUnknown,
  nodeMisplaced,  // a pointer to no multiple of 512
  nodeNotRead,    // the system reports a failure
  nodeMissing,    // the file ends before or inside the node
  treeTooDeep,    // more than 19 nodes above the current one
  inconsistent,   // counts, order or pointers that no tree has
  deletedNodeUnsigned,
  deletedNodeCountWrong,  // 0, or above 126
  notWritten,
};

/// The first 2048 bytes of the file are kept; the root is read from there, and pointer 0 stands for it.
struct IsiHandle {
  int fd = -1;  // of the open file; not owned
  bool bigEndian = false;
  bool recordNumbers = false;   // pointers are node numbers
  bool keylessAllowed = false;  // an index without key columns is opened too
  std::uint32_t keyLength = 0;
  std::uint32_t entrySize = 0;
  std::uint32_t entriesPerNode = 0;
  IsiHeaderArea area{};
};

/// Reads the header area and takes the geometry of the index from it.
[[nodiscard]] IndexResult openIndex(IsiHandle& handle, int fd);

/// Re-reads the header area, which another process may have changed before the locks were granted: the change counter
/// alone does not tell, it is the same again after two changes.
[[nodiscard]] IndexResult checkSpinCounter(IsiHandle& handle);

/// The LFA that an entry of the index stands for.
[[nodiscard]] inline std::uint64_t lfaOf(bool recordNumbers, const IsiEntryHead& head) {
  const std::uint64_t position = head.position;
  return recordNumbers ? position * head.recordLength : position;
}
[[nodiscard]] inline std::uint64_t lfaOf(const IsiHandle& handle, const IsiEntryHead& head) {
  return lfaOf(handle.recordNumbers, head);
}

/// Reads the node of the tree that the pointer names.
[[nodiscard]] IndexResult readTreeNode(const IsiHandle& handle, std::uint32_t pointer, IsiNode& node);

/// Reads a node of the deleted-record list into the header area and checks it.
[[nodiscard]] IndexResult readDeletedNode(IsiHandle& handle, std::uint32_t pointer);

/// Checks the deleted-record node in the header area.
[[nodiscard]] IndexResult checkDeletedNode(const IsiHandle& handle);

/// Write the header (at offset 0), a tree node, or the deleted-record node of the header area to an index file in the
/// byte order of the handle.
[[nodiscard]] IndexResult writeHeader(const IsiHandle& handle, int fd);
[[nodiscard]] IndexResult writeTreeNode(const IsiHandle& handle, int fd, std::uint64_t offset, const IsiNode& node);
[[nodiscard]] IndexResult writeDeletedNode(const IsiHandle& handle, int fd, std::uint64_t offset);

}  // namespace tarnvale
