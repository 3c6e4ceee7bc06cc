// The records that most files consist of: text without TABs to expand.
//
// They are taken straight from the block, many in one loop; whatever is not plain is left to the general scan.
#pragma once

#include <cstdint>

#include "data/scanner.h"
#include "format/sort_entry.h"

namespace tarnvale {

/// True when the records of the scan may be plain.
[[nodiscard]] bool mayScanPlainRecords(const Scanner& scanner);

/// Makes entries of the plain records from the cursor on, each followed in the block by the beginning of another one.
/// The next free entry; `areaEnd` when there is none left.
[[nodiscard]] std::uint8_t* scanPlainRecords(Scanner& scanner, const EntryArea& area, std::uint8_t* entry,
                                             const std::uint8_t* areaEnd);

}  // namespace tarnvale
