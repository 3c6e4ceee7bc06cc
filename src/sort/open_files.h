// The opening of a run's files: data file (or the index to compact), index file, error file of duplicate keys.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Resolves the names and opens or creates the files of a build or a compaction; finds the data file's end-of-record
/// convention and loads its first block. Every file opened stays open for the clean-up. Where a failure has no fixed
/// text, its message is in `messageBuffer`: -100 -105 -106 -116 -120 -121 -122 -123 -126 -138 -160 -161.
[[nodiscard]] StatusCode OpenRunFiles(RunContext& run);

/// OpenRunFiles for a run that only scans: the data file alone, which is not created.
[[nodiscard]] StatusCode OpenDataFile(RunContext& run);

}  // namespace tarnvale
