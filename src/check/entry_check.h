// The entries of an index, without its data file: compared with one another, and with what the header says of records.
#pragma once

#include <cstdint>

#include "check/position_set.h"
#include "check/progress_line.h"
#include "check/report.h"
#include "check/tree_walk.h"
#include "cmdline/settings.h"

namespace tarnvale {

/// What the header says of every entry.
struct EntryRules {
  bool equalKeys = true;             // are allowed
  std::uint64_t positions = 0;       // an entry's position is below this
  std::uint32_t shortestRecord = 0;  // bytes, mark included
  std::uint32_t longestRecord = 0;
};

/// `settings` are those of the stored command; null: they are not known.
[[nodiscard]] EntryRules makeEntryRules(const IsiHeader& header, const Settings* settings);

/// Walks all entries: keys ascend, equal keys are numbered, positions and lengths are ones that records can have, and
/// no position is in `used`, which takes them all.
void checkEntries(const IsiHandle& index, const EntryRules& rules, TreeWalk& walk, PositionSet& used, Report& report,
                  ProgressLine& progress);

}  // namespace tarnvale
