// The header of an index.
#pragma once

#include <cstdint>

#include "check/report.h"
#include "cmdline/settings.h"
#include "format/isi_format.h"

namespace tarnvale {

/// What no build and no compaction writes, whatever the options: version and texts.
void checkForm(const IsiHeader& header, Report& report);

/// Compares every field that the data file and the options decide with the header that a build would write now.
void checkHeader(const IsiHeader& found, const IsiHeader& wanted, Report& report);

/// The header that a build with these settings would write, where what its data file decides is as in `found`.
[[nodiscard]] IsiHeader expectedHeader(const Settings& settings, const IsiHeader& found);

/// Compares the extent of the data with the counts of records.
void checkExtent(const IsiHeader& header, Report& report);

/// Compares the count of records with the entries that the index has. `settings` are those of the stored command; null:
/// they are not known.
void checkRecordCount(const IsiHeader& header, std::uint64_t entries, const Settings* settings, Report& report);

}  // namespace tarnvale
