// The index compared with its data file: the build made once more, with every result compared instead of written.
#pragma once

#include "check/progress_line.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/tracked_files.h"
#include "data/record_scan.h"
#include "isi/isi_handle.h"
#include "sort/sorter.h"

namespace tarnvale {

/// What takes part in a comparison. The data file is open, the scan at its start, the sorter ready, the work files
/// made.
struct DataComparison {
  const Settings& settings;
  IsiHandle& index;
  Scanner& scanner;
  Sorter& sorter;
  TrackedFiles& files;
  Messages& messages;
  Report& report;
  ProgressLine& progress;
};

/// Scans and sorts the data file and compares it with the index. What the walk has met, for the verdict.
TreeSize compareWithData(const DataComparison& check);

}  // namespace tarnvale
