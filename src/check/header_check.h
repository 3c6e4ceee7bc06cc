// The header of an index.
#pragma once

#include <cstdint>

#include "check/report.h"
#include "cmdline/settings.h"
#include "format/isi_format.h"

namespace tarnvale {

/// Compares every field that the data file and the options decide with the header that a build would write now.
void checkHeader(const IsiHeader& found, const IsiHeader& wanted, Report& report);

/// What the header says by itself: fields that no build writes, or that do not go together.
void checkHeaderAlone(const IsiHeader& header, Report& report);

/// The number of entries, which the header knows unless records were left out.
void checkEntryCount(const IsiHeader& header, std::uint64_t entries, Report& report);

/// Compares the names and options of the stored command with the header.
void checkStoredCommand(const IsiHeader& header, const Settings& stored, Report& report);

/// Bytes of the end-of-record mark of the data file.
[[nodiscard]] std::uint32_t markLengthOf(const IsiHeader& header);

}  // namespace tarnvale
