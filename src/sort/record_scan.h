// The record scan: from the data file to the entries of one sort train.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Scans records into the sort area until the train is full (0) or the data file is exhausted (-1); an end marker then
/// stands behind the last entry. Goes on where the call before stopped. -4 read failure, -5 a binary record without its
/// end-of-record mark, -161 record too long, or the code of the deleted-record list.
[[nodiscard]] StatusCode CreateSubList(RunContext& run);

}  // namespace tarnvale
