// The clock of a run: when it started and how long it took.
#pragma once

#include <ctime>

#include "common/fixed_text.h"

namespace tarnvale {

/// A moment, and its time of day as hh:mm:ss in local time.
struct ClockText {
  std::time_t seconds = 0;
  FixedText<9> text;
};

[[nodiscard]] ClockText currentClock();

/// The number of seconds as hh:mm:ss, 00:00:00 to 99:59:59; what lies beyond is shown as the nearest of these.
[[nodiscard]] FixedText<9> formatElapsed(std::time_t seconds);

/// The line of start time, stop time and elapsed time, for a run that stops now.
[[nodiscard]] FixedText<80> timingLine(const ClockText& start);

}  // namespace tarnvale
