// The header of a finished index.
#pragma once

#include "common/run_context.h"
#include "isi/isi_format.h"

namespace tarnvale {

/// Sets `foundRecordLength` to the record length without the end-of-record mark, but with it for option g. -151, and a
/// message, when no length is known because no record was scanned.
[[nodiscard]] StatusCode settleHeaderLength(RunContext& run);

/// The header that describes the finished run.
[[nodiscard]] IsiHeader makeHeader(const RunContext& run);

}  // namespace tarnvale
