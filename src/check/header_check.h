// The header of an index.
#pragma once

#include <cstdint>

#include "check/report.h"
#include "isi/isi_format.h"

namespace tarnvale {

/// Holds every field that the data file and the options decide against the header that a build would write now.
void checkHeader(const IsiHeader& found, const IsiHeader& wanted, Report& report);

/// What the header says by itself, and of an index with so many entries.
void checkHeaderAlone(const IsiHeader& header, std::uint64_t entries, Report& report);

}  // namespace tarnvale
