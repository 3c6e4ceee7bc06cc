// Sorted trains into the work file, joined where they continue each other.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Writes the train in the order of the pointer array to the file being written. A train that continues the one before
/// in order becomes one with it, and `sortTrainCount` goes down by one: the caller counts every train. 0, or -1 when a
/// write failed.
[[nodiscard]] StatusCode WriteSortTrain(RunContext& run);

}  // namespace tarnvale
