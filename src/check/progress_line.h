// How far a check is: one line at a terminal, written over again and again, and gone when something else is to be said.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace tarnvale {

class ProgressLine {
 public:
  /// The line stands on `stream` when that is a terminal; null: nothing is ever shown.
  explicit ProgressLine(std::FILE* stream);

  /// Shows the phase and how much of it is done, a few times a second.
  void show(const char* phase, std::uint64_t done, std::uint64_t total);

  /// As show, for a phase that counts every item: the clock is read now and then only.
  void count(const char* phase, std::uint64_t done, std::uint64_t total) {
    if (done % itemsBetweenLooks == 0) show(phase, done, total);
  }

  /// Removes the line.
  void clear();

 private:
  static constexpr std::uint64_t itemsBetweenLooks = 4096;

  std::FILE* stream_;  // null: not a terminal
  std::chrono::steady_clock::time_point lastShown_;
  const char* phase_ = nullptr;  // shown last
  int width_ = 0;                // characters of the line that is there
};

}  // namespace tarnvale
