// The clock of a run: when it started and how long it took.
#pragma once

#include <ctime>

#include "common/run_context.h"

namespace tarnvale {

/// A moment, and its time of day as hh:mm:ss in local time.
struct ClockText {
  std::time_t seconds = 0;
  FixedText<9> text;
};

[[nodiscard]] ClockText currentClock();

/// The number of seconds as hh:mm:ss, 00:00:00 to 99:59:59; what lies beyond is shown as the nearest of these.
[[nodiscard]] FixedText<9> FormatElapsed(std::time_t seconds);

/// Writes start time, stop time and elapsed time.
void putTimingLine(RunContext& run, const ClockText& start);

}  // namespace tarnvale
