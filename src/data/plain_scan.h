// The records that most files consist of: whole ones in the middle of a block.
//
// They are taken straight from the block, many in one loop; whatever is not plain, as a record that the block does not
// hold to its end, a deleted one, or one longer than it should be, is left to the general scan.
#pragma once

#include <cstdint>

#include "data/scanner.h"
#include "format/sort_entry.h"

namespace tarnvale {

/// True for a deleted record in a binary file.
[[nodiscard]] bool isAllNul(const RecordBytes& record);

/// True when a binary record ends as option g demands.
[[nodiscard]] bool endsWithMark(const EndOfRecordMark& mark, const RecordBytes& record);

/// True when the records of the scan may be plain.
[[nodiscard]] bool mayScanPlainRecords(const Scanner& scanner);

/// Makes entries of the plain records from the cursor on, each followed in the block by the beginning of another one.
/// The next free entry; `areaEnd` when there is none left.
[[nodiscard]] std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                                             const std::uint8_t* areaEnd);

}  // namespace tarnvale
