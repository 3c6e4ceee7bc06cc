// What the user asked for. The parser fills it; from then on it is const.
#pragma once

#include <cstdint>

#include "cmdline/columns.h"
#include "common/file_name.h"

namespace tarnvale {

struct Settings {
  FileName dataName;                                 // as written; for c, i and r the index
  FileName indexName;                                // as written
  FixedText<maxCommandLine + 32> storedCommandLine;  // data,index,rest of the command line
  FixedText<256> tempPath;                           // directory of the work files, empty: TMPDIR or /tmp
  std::uint32_t recordLength = 0;                    // bytes without the end-of-record mark; 0: not given

  bool compact = false;
  bool keepStoredCommand = false;  // c=0: a compacted index keeps its command line as it is
  bool compactLocking = false;     // share the data file with running applications
  bool display = false;
  bool reindex = false;

  bool variableLength = false;
  bool spaceCompression = false;       // records may hold TABs that stand for blanks
  bool tabExpansion = true;            // a TAB stands for blanks up to the next multiple of 8
  bool binaryRecords = false;          // of one length, all bytes are data
  bool binaryWithEor = false;          // they end with an end-of-record mark that is checked
  bool markless = false;               // option f: no end-of-record mark is counted with a length
  bool recordNumberAddressing = true;  // the index addresses records by number instead of by byte offset
  bool quitIfNoData = false;           // a missing data file is a failure instead of being created
  bool recordCountEnabled = true;      // progress lines count records

  bool noDuplicates = false;
  bool ignoreDuplicates = false;  // duplicate keys are dropped instead of failing
  bool quietDuplicates = false;   // and not reported
  bool errorFileWanted = false;   // duplicate keys are listed

  std::uint32_t maxFillPercent = 100;
  std::uint8_t osType = 0;           // indexFlags bits: 0, 8 or 16
  bool writeAllAtEnd = false;        // deleted records are not kept for reuse
  bool discardPathInHeader = false;  // the header keeps the bare data file name
  bool noDriveInHeader = false;

  KeyColumns keys;
  Selection selection;

  [[nodiscard]] bool isBuild() const { return !compact && !display && !reindex; }
  /// Bytes that an end-of-record mark takes of the longest record, as far as the command line tells.
  [[nodiscard]] std::uint32_t assumedMarkLength() const { return markless ? 0 : 1; }
};

}  // namespace tarnvale
