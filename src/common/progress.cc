#include "common/progress.h"

#include <algorithm>

namespace tarnvale {

FixedText<32> Progress::note(std::uint64_t done, std::uint64_t total) const {
  constexpr std::time_t secondsBeforeGuess = 3;
  constexpr std::size_t width = 26;
  FixedText<32> text;
  if (total == 0) return text;
  done = std::min(done, total);
  const auto percent = static_cast<unsigned>(static_cast<double>(done) * 100 / static_cast<double>(total));
  const std::time_t elapsed = std::time(nullptr) - start;
  if (elapsed < secondsBeforeGuess || done == 0) {
    text.format(" (%u %%)", percent);
  } else {
    const double rest = static_cast<double>(total - done) / static_cast<double>(done);
    text.format(" (%u %%, %.0f s left)", percent, static_cast<double>(elapsed) * rest);
  }
  while (text.size() < width && text.append(" ")) continue;
  return text;
}

}  // namespace tarnvale
