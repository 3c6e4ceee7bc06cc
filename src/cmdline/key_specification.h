// Key specifications: ranges of record columns, read digit by digit, and the column table they fill.
#pragma once

#include <cstdint>

#include "cmdline/columns.h"
#include "common/messages.h"
#include "common/status_code.h"

namespace tarnvale {

/// The key specification being read: `start[-end]`, columns counted from 1.
struct PendingKeySpec {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  bool digitSeen = false;
  bool dashSeen = false;
};

/// Adds a digit to the column being read. -111 when the column is larger than `maxColumn`.
[[nodiscard]] StatusCode addKeyDigit(PendingKeySpec& pending, std::uint32_t digit, std::uint32_t maxColumn);

/// Enters the key specification, if one is pending, into the column table and the list of specifications, and clears
/// it. -112 start column 0 or missing, -113 overlap, -114 too many key bytes, -115 too many specifications.
[[nodiscard]] StatusCode completeKeySpec(KeyColumns& keys, PendingKeySpec& pending);

enum class KeyRangeResult { added, overlap, tableFull };

/// Adds the columns from `first` to `last` (counted from 1, in this order, downwards when first is greater) as the next
/// bytes of the key.
[[nodiscard]] KeyRangeResult addKeyRange(KeyColumns& keys, std::uint32_t first, std::uint32_t last);

/// The entry of the column (counted from 0), appended without any role when there is none.
ColumnEntry& findOrAddColumn(KeyColumns& keys, std::uint16_t column);

/// Puts the closing entry behind the last one and sorts the entries by column.
void closeColumnTable(KeyColumns& keys);

/// Prints the table, one line per column (debug mode).
void displayColumnTable(Messages& messages, const KeyColumns& keys);

}  // namespace tarnvale
