#include "driver/run_clock.h"

#include <algorithm>

namespace tarnvale {

ClockText currentClock() {
  ClockText clock;
  clock.seconds = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&clock.seconds, &local);
  clock.text.format("%02d:%02d:%02d", local.tm_hour % 100, local.tm_min % 100, local.tm_sec % 100);
  return clock;
}

FixedText<9> formatElapsed(std::time_t seconds) {
  constexpr std::time_t longest = 359999;
  const std::time_t shown = std::clamp<std::time_t>(seconds, 0, longest);
  FixedText<9> text;
  text.format("%02ld:%02ld:%02ld", shown / 3600, shown % 3600 / 60, shown % 60);
  return text;
}

FixedText<80> timingLine(const ClockText& start) {
  const ClockText stop = currentClock();
  FixedText<80> line;
  static_cast<void>(line.join("Start time = ", start.text.view(), "  Stop time = ", stop.text.view(),
                              "  Elapsed time = ", formatElapsed(stop.seconds - start.seconds).view(), "\n"));
  return line;
}

}  // namespace tarnvale
