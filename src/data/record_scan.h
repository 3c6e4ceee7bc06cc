// The record scan: from the data file to the entries of one sort train.
#pragma once

#include <cstdint>

#include "common/function_ref.h"
#include "common/messages.h"
#include "data/scanner.h"
#include "format/sort_entry.h"

namespace tarnvale {

enum class ScanResult : std::uint8_t {
  trainFull,       // more records follow
  inputExhausted,  // the data has ended
  readFailed,
  invalidEndOfRecord,  // the binary record at `currentLfa` does not end with the mark
  recordTooLong,       // longer than 65535 bytes less the mark
  sinkRefused,         // the sink of deleted records does not go on
};

struct ScannedTrain {
  ScanResult result = ScanResult::inputExhausted;
  std::uint32_t entries = 0;  // in the area, without the end marker
};

/// Takes the LFA of a deleted record; false ends the scan.
using DeletedRecordSink = FunctionRef<bool(std::uint64_t lfa)>;

/// Scans records into the area until it is full or the data ends; an end marker then stands behind the last entry.
/// Goes on where the call before stopped.
[[nodiscard]] ScannedTrain createSubList(Scanner& scanner, const EntryArea& area, Messages& messages,
                                         DeletedRecordSink deleted);

}  // namespace tarnvale
