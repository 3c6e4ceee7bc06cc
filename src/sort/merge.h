// The merge of the sort trains, in one to three passes over the two work files.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Merges the `sortTrainCount` trains (at least 1) of the file being written and hands each entry, in order, to
/// `mergeOutputCallback`; the address is valid during the call only. 0, or: -3 a block could not be read, -158 a work
/// file could not be written, or the callback's result, which ends the merge at once. Then `indexedRecordCount` is the
/// number of entries delivered in whole thousands, and `progressCountdown` 1000 less the rest.
[[nodiscard]] StatusCode DoFancyMerge(RunContext& run);

}  // namespace tarnvale
