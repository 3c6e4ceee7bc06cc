// What is said behind a progress line: how far the work is, and how long it will take.
#pragma once

#include <cstdint>
#include <ctime>

#include "common/fixed_text.h"

namespace tarnvale {

/// Some work whose end is known. Progress lines are for terminals, and so is this.
struct Progress {
  std::time_t start = std::time(nullptr);

  /// " (42 %, 12 s left)", the time only after some seconds; blanks up to a fixed width, so that it overwrites the text
  /// before. Empty when nothing is known: a total of 0.
  [[nodiscard]] FixedText<32> note(std::uint64_t done, std::uint64_t total) const;
};

}  // namespace tarnvale
