#include "check/progress_line.h"

#include <unistd.h>

#include <algorithm>

namespace tarnvale {

ProgressLine::ProgressLine(std::FILE* stream) : stream_(stream) {
  if (stream != nullptr && ::isatty(::fileno(stream)) == 0) stream_ = nullptr;
}

void ProgressLine::show(const char* phase, std::uint64_t done, std::uint64_t total) {
  constexpr std::chrono::milliseconds pause(200);
  if (stream_ == nullptr) return;
  const auto now = std::chrono::steady_clock::now();
  if (phase == phase_ && now - lastShown_ < pause) return;
  lastShown_ = now;
  phase_ = phase;
  const double share = total == 0 ? 0 : static_cast<double>(done) / static_cast<double>(total);
  const int percent = static_cast<int>(std::min(share, 1.0) * 100);
  width_ = std::max(width_, std::fprintf(stream_, "%s: %d%%\r", phase, percent) - 1);
  std::fflush(stream_);
}

void ProgressLine::clear() {
  if (width_ <= 0) return;
  std::fprintf(stream_, "%*s\r", width_, "");
  std::fflush(stream_);
  width_ = 0;
}

}  // namespace tarnvale
