// Key specifications: ranges of record columns, as written, and the column table they fill.
//
// The key of a record is the bytes of all specifications in the order given; a range written high-to-low gives its
// bytes in reverse order. The column table holds one entry per column that has a role in the run.
#pragma once

#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

/// The key specification being read: `start[-end]`, columns counted from 1.
struct PendingKeySpec {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  bool digitSeen = false;
  bool dashSeen = false;
};

/// Adds a digit to the column being read. -111 when the column is larger than a record can have.
[[nodiscard]] StatusCode addKeyDigit(const RunContext& run, PendingKeySpec& pending, std::uint32_t digit);

/// Enters the key specification, if one is pending, into the column table and the list of specifications, and clears
/// it. -112 start column 0 or missing, -113 overlap, -114 too many key bytes, -115 too many specifications.
[[nodiscard]] StatusCode completeKeySpec(RunContext& run, PendingKeySpec& pending);

enum class KeyRangeResult { added, overlap, tableFull };

/// Adds the columns from `first` to `last` (counted from 1, in this order, downwards when first is greater) as the next
/// bytes of the key.
[[nodiscard]] KeyRangeResult addKeyRange(RunContext& run, std::uint32_t first, std::uint32_t last);

/// The entry of the column (counted from 0), appended without any role when there is none.
ColumnEntry& findOrAddColumn(RunContext& run, std::uint16_t column);

/// Puts the closing entry behind the last one and sorts the entries by column.
void closeColumnTable(RunContext& run);

/// Prints the table, one line per column (debug mode).
void displayColumnTable(RunContext& run);

}  // namespace tarnvale
