// The bottom-up tree builder: turns entries that arrive in key order into the nodes of an index file.
#pragma once

#include <array>
#include <cstdint>

#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/tracked_files.h"
#include "data/scanner.h"
#include "format/isi_format.h"
#include "isi/duplicate_list.h"
#include "isi/index_output.h"

namespace tarnvale {

/// The right edge of a tree, one node image per level, and what was met on the way.
struct TreeBuilder {
  std::uint32_t keyLength = 0;
  std::uint32_t entrySize = 0;  // key length + 12 rounded up to a multiple of 4
  std::uint32_t fillLimit = 0;  // entries that fill a node
  std::size_t topLevel = 0;
  std::array<IsiNode, maxTreeLevels> levels{};
  const std::uint8_t* previousKey = nullptr;  // of the entry inserted last, in its node image; null: none yet
  std::uint16_t previousDuplicateNumber = 0;
  std::uint32_t recordLength =
      0;  // that all records should have, end-of-record mark included; 0: that of the first entry
  bool shortRecordReported = false;
  FormatFindings findings;  // those of the scan, and what the lengths of the entries add
};

enum class TreeResult : std::uint8_t {
  done,
  tooHigh,          // more than 16 levels; the message is in the messages' buffer
  indexNotWritten,  // a message was printed
};

/// What takes part in the building of an index.
struct IndexBuilder {
  IndexOutput output;
  TreeBuilder tree;
  DuplicateList duplicates;
};

/// Prepares the tree for keys of `keyLength` bytes and nodes filled to `fillPercent`.
void startTree(IndexBuilder& builder, std::uint32_t keyLength, std::uint32_t fillPercent);

/// Inserts one sort entry; entries come in ascending order.
[[nodiscard]] TreeResult writeTagRecord(IndexBuilder& builder, const std::uint8_t* entry, const Settings& settings,
                                        TrackedFile& errorFile, Messages& messages);

/// Writes the partly filled nodes, and the root to its place. False when that fails, with a message where it was a
/// write.
[[nodiscard]] bool finishLevels(IndexBuilder& builder, Messages& messages);

}  // namespace tarnvale
