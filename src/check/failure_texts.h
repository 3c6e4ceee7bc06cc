// What is said when a data file cannot be opened, scanned or sorted. Where a build would refuse the data file, that is
// a difference: no index of it can be right.
#pragma once

#include <cstdint>

#include "check/report.h"
#include "common/messages.h"
#include "common/status_code.h"
#include "common/tracked_files.h"
#include "data/record_scan.h"
#include "sort/sorter.h"

namespace tarnvale {

/// The difference: a build would refuse the data file.
inline constexpr const char* notInFormat = "the data file is not in the format that its index declares";

/// A failed opening; the messages' buffer has the text of a code that has none of its own.
void reportOpenFailure(StatusCode status, const Messages& messages, Report& report);

/// The data file holds what no record can be, at `lfa`, or cannot be read.
void reportScanFailure(ScanResult result, std::uint64_t lfa, const TrackedFiles& files, Report& report);

/// A failed step of the sort. Failures of a source have been reported where they came from.
void reportSortFailure(SortResult result, const Sorter& sorter, const TrackedFiles& files, Report& report);

}  // namespace tarnvale
