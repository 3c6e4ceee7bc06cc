// What a scan of a data file knows: where it reads, what it looks for, and what it has found.
#pragma once

#include <cstdint>

#include "cmdline/settings.h"
#include "common/messages.h"
#include "data/block_reader.h"
#include "data/data_file.h"
#include "data/key_extraction.h"

namespace tarnvale {

/// In what the data file differs from what the options declare.
struct FormatFindings {
  bool spaceCompression = false;  // a TAB was expanded
  bool variableLength = false;    // a position or length that does not fit a fixed-length file
  bool invalidPosition = false;   // the first such was a run of NUL bytes
  bool overlongRecord = false;    // a record longer than the limit
};

/// What a scan finds.
struct ScanFindings {
  std::uint64_t recordCount = 0;  // records scanned, selected or not
  std::uint32_t deletedCount = 0;
  FormatFindings format;
};

inline constexpr std::size_t scanBufferSize = inputBufferSize + expandedSize;

/// A scan of a data file, from its start to its end in one piece after the other.
struct Scanner {
  BlockReader blocks;
  const Settings* settings = nullptr;  // not owned
  KeyPlan plan;
  EndOfRecordMark mark;                   // end-of-record mark of text, or at the end of each binary record of option g
  std::uint32_t markBehind = 0;           // bytes of it behind a record: none behind a binary one
  std::uint32_t recordLimit = 0;          // bytes, as in RecordFormat; set by the first record where it was 0
  bool expandsTabs = false;               // a TAB stands for blanks
  std::uint8_t* expanded = nullptr;       // a record with its TABs expanded
  const std::uint8_t* nextTab = nullptr;  // of short records: no TAB between the cursor and here; null: not looked for
  std::uint64_t currentLfa = 0;           // data file offset of the byte under the cursor
  ScanFindings findings;

  /// Bytes of the data file that were read: all, once the scan is over.
  [[nodiscard]] std::uint64_t bytesRead() const { return blocks.position; }
};

/// Prepares the scan of an open data file and loads its first block. `buffer` has scanBufferSize bytes; it and the
/// settings must outlive the scan. False when the file cannot be read.
[[nodiscard]] bool startScan(Scanner& scanner, const Settings& settings, const RecordFormat& format, int fd,
                             std::uint8_t* buffer, Messages& messages);

}  // namespace tarnvale
