// The records of an index (ISI) file, as they lie in it.
//
//      0  IsiHeader
//   1024  the root node, whatever the tree's height
//   1536  the first node of the deleted-record list, or zero bytes
//   2048  all further nodes, 512 bytes each: first those of the list, then those of the tree
//
// Integers are little-endian. A big-endian file is recognised by its version word; its records are byte-swapped where
// they are read and written, and nothing further in knows that two orders exist.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "common/limits.h"
#include "format/byte_order.h"

namespace tarnvale {

inline constexpr std::uint32_t nodeSize = 512;
inline constexpr std::uint32_t rootOffset = 1024;
inline constexpr std::uint32_t deletedListOffset = 1536;  // of the first node of the deleted-record list
inline constexpr std::uint32_t headerAreaSize = 2048;
inline constexpr std::uint32_t noPointer = 0xFFFFFFFF;  // the list ends; child pointers end with 0
inline constexpr std::uint16_t isiVersion = 0xFC03;
inline constexpr std::uint16_t isiVersionSwapped = 0x03FC;
inline constexpr std::size_t maxTreeLevels = 16;

namespace record_flag {
inline constexpr std::uint8_t eorMask = 0xC0;      // 0x00 CR, 0x40 CR LF, 0x80 LF, 0xC0 LF CR
inline constexpr std::uint8_t eorTwoBytes = 0x40;  // set: CR LF or LF CR
inline constexpr std::uint8_t eorLineFeed = 0x80;
inline constexpr std::uint8_t deletedNotKept = 0x20;  // deleted records are not kept for reuse
inline constexpr std::uint8_t binary = 0x10;          // without end-of-record mark
inline constexpr std::uint8_t spaceCompressed = 0x08;
inline constexpr std::uint8_t noDuplicates = 0x04;
inline constexpr std::uint8_t variableLength = 0x02;
inline constexpr std::uint8_t upperCase = 0x01;
inline constexpr std::uint8_t byOffset = variableLength | spaceCompressed;  // any set: positions are byte offsets
}  // namespace record_flag

namespace index_flag {
inline constexpr std::uint8_t recordNumbers = 0x01;  // positions are record numbers, node pointers node numbers
}  // namespace index_flag

inline constexpr std::size_t maxKeySpecs = 32;
inline constexpr std::size_t maxPrimaryOptions = 10;
inline constexpr std::size_t maxStoredCommandLine = 527;  // characters

/// One key specification as written on the command line.
struct KeySpec {
  Le16 start;   // 0  first column named, counted from 0
  Le16 length;  // 2  last column minus first column plus 1 as a 16-bit value: negative for a high-to-low range
};
static_assert(sizeof(KeySpec) == 4);

/// What a selection test asks; other bits of the same set are the command line's own.
namespace condition_flag {
inline constexpr std::uint8_t notEqual = 0x10;
inline constexpr std::uint8_t equal = 0x20;
}  // namespace condition_flag

/// One `p` option.
struct PrimaryCondition {
  Le16 position;              // 0  column counted from 1; for an expression its highest column
  std::uint8_t operatorBits;  // 2  condition_flag bits, both when two conditions share the column
  std::uint8_t character;     // 3
};
static_assert(sizeof(PrimaryCondition) == 4);

struct IsiHeader {
  std::array<char, 4> magic;                                    //    0  "SISI"
  Le16 versionWord;                                             //    4  isiVersion
  std::uint8_t recordFlags;                                     //    6
  std::uint8_t indexFlags;                                      //    7
  Le16 recordLength;                                            //    8  bytes, without the end-of-record mark
  Le16 keyLength;                                               //   10  bytes, 1 to 150
  Le32 dataExtent;                                              //   12  data file: record slots, or bytes
  Le32 deletedListHead;                                         //   16  pointer, noPointer when empty
  Le32 rootPointer;                                             //   20
  Le32 reserved24;                                              //   24  0xFFFFFFFF
  Le32 reserved28;                                              //   28
  Le32 spinCounter;                                             //   32  flips with each compaction
  Le32 reserved36;                                              //   36  set to 0 by each compaction
  Le32 reserved40;                                              //   40
  Le32 recordCount;                                             //   44  records scanned, low 32 bits
  Le32 deletedCount;                                            //   48
  std::array<std::uint8_t, 12> reserved52;                      //   52
  std::array<PrimaryCondition, maxPrimaryOptions> selectTests;  //   64
  std::array<std::uint8_t, 8> reserved104;                      //  104
  std::array<KeySpec, maxKeySpecs> keySegments;                 //  112  ends at the first of length 0
  std::array<char, 256> dataFileName;                           //  240  NUL-terminated
  std::array<char, 528> storedCommandLine;                      //  496  NUL-terminated
};
static_assert(sizeof(IsiHeader) == 1024 && alignof(IsiHeader) == 1);
static_assert(offsetof(IsiHeader, recordLength) == 8 && offsetof(IsiHeader, deletedListHead) == 16);
static_assert(offsetof(IsiHeader, spinCounter) == 32 && offsetof(IsiHeader, deletedCount) == 48);
static_assert(offsetof(IsiHeader, selectTests) == 64 && offsetof(IsiHeader, keySegments) == 112);
static_assert(offsetof(IsiHeader, dataFileName) == 240 && offsetof(IsiHeader, storedCommandLine) == 496);

/// The header of an older layout, of which only the command line is read.
struct OldIsiHeader {
  std::array<char, 52> unused0;
  std::uint8_t check;                       //   52
  std::uint8_t checkComplement;             //   53
  std::array<char, 74> unused54;            //   54
  std::array<char, 256> storedCommandLine;  //  128  NUL-terminated, unless it fills the field
  std::array<char, 640> unused384;          //  384
};
static_assert(sizeof(OldIsiHeader) == sizeof(IsiHeader) && offsetof(OldIsiHeader, check) == 52);
static_assert(offsetof(OldIsiHeader, storedCommandLine) == 128);

/// The text of a field up to its NUL; the last byte of the field is never part of it.
[[nodiscard]] inline std::string_view textOf(std::span<const char> field) {
  const std::string_view text(field.data(), field.size() - 1);
  return text.substr(0, text.find('\0'));
}

/// What stands before the key in an entry of a node.
struct IsiEntryHead {
  Le32 position;         //  0  record number, or byte offset in the data file
  Le32 leftChild;        //  4  the subtree of the keys before this one; 0 in a leaf
  Le16 duplicateNumber;  //  8  0 for the first entry of a key, then one more each
  Le16 recordLength;     // 10  bytes, with the end-of-record mark
};
static_assert(sizeof(IsiEntryHead) == 12);

struct IsiNode {
  static constexpr std::size_t entryBytes = 500;

  std::array<std::uint8_t, entryBytes> entries;  //    0  count entries in key order
  std::uint8_t count;                            //  500
  std::array<std::uint8_t, 5> unused;            //  501
  Le16 level;                                    //  506  0 for a leaf
  Le32 rightChild;                               //  508  the subtree of the keys behind the last entry
};
static_assert(sizeof(IsiNode) == nodeSize && alignof(IsiNode) == 1);
static_assert(offsetof(IsiNode, count) == 500 && offsetof(IsiNode, level) == 506);

struct DeletedRecordNode {
  static constexpr std::size_t capacity = 126;
  static constexpr std::uint8_t signature1 = 0xF9;
  static constexpr std::uint8_t signature2 = 0xFD;

  std::array<Le32, capacity> positions;   //    0  in the units of record positions
  Le32 next;                              //  504  pointer, noPointer at the end
  Le16 count;                             //  508  1 to 126
  std::array<std::uint8_t, 2> signature;  //  510
};
static_assert(sizeof(DeletedRecordNode) == nodeSize && offsetof(DeletedRecordNode, next) == 504);

/// The first 2048 bytes of a file, which readers keep in memory.
struct IsiHeaderArea {
  IsiHeader header;               //    0
  IsiNode root;                   // 1024
  DeletedRecordNode deletedNode;  // 1536
};
static_assert(sizeof(IsiHeaderArea) == headerAreaSize);
static_assert(offsetof(IsiHeaderArea, root) == rootOffset);
static_assert(offsetof(IsiHeaderArea, deletedNode) == deletedListOffset);

/// Bytes of one entry: head and key, rounded up to a multiple of 4.
[[nodiscard]] constexpr std::uint32_t isiEntrySize(std::uint32_t keyLength) {
  return (keyLength + static_cast<std::uint32_t>(sizeof(IsiEntryHead)) + 3) & ~3U;
}
static_assert(isiEntrySize(10) == 24 && isiEntrySize(150) == 164 && isiEntrySize(1) == 16);

[[nodiscard]] constexpr std::uint32_t entriesPerNode(std::uint32_t entrySize) {
  return static_cast<std::uint32_t>(IsiNode::entryBytes) / entrySize;
}

/// The pointer to a byte offset of the file, and back.
[[nodiscard]] constexpr std::uint32_t pointerToOffset(std::uint64_t offset, bool recordNumbers) {
  return static_cast<std::uint32_t>(recordNumbers ? offset / nodeSize : offset);
}
[[nodiscard]] constexpr std::uint64_t offsetOfPointer(std::uint32_t pointer, bool recordNumbers) {
  return recordNumbers ? std::uint64_t{pointer} * nodeSize : pointer;
}

/// The most entries that a tree of 16 levels can hold whose nodes take `fillLimit` entries each, modulo 2^64.
[[nodiscard]] constexpr std::uint64_t treeCapacity(std::uint32_t fillLimit) {
  std::uint64_t entries = 1;
  for (std::size_t level = 0; level < maxTreeLevels; ++level) entries *= fillLimit + 1;
  return entries - 1;
}

[[nodiscard]] inline const IsiEntryHead& entryHead(const std::uint8_t* entry) {
  return *reinterpret_cast<const IsiEntryHead*>(entry);
}
[[nodiscard]] inline const std::uint8_t* isiEntryKey(const std::uint8_t* entry) { return entry + sizeof(IsiEntryHead); }

/// Byte-swap a record. `fromFile` tells which side the counts are readable on: true before the swap of a record that
/// was read, false before the swap of one to be written.
void swapHeader(IsiHeader& header);
void swapNode(IsiNode& node, std::uint32_t entrySize);
void swapDeletedNode(DeletedRecordNode& node, bool fromFile);

}  // namespace tarnvale
