// InterruptHold: SIGINT, SIGTERM and SIGHUP wait while a file and its record in TrackedFiles change together.
//
// A file that is created, deleted or closed and the handle or name that says so are two things. The interrupt handler
// removes what the record names, so there must be no instruction at which only one of the two is true.
#pragma once

#include <csignal>

namespace tarnvale {

/// The signals that end a run.
[[nodiscard]] inline sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  return signals;
}

class InterruptHold {
 public:
  InterruptHold() {
    const sigset_t held = endingSignals();
    sigprocmask(SIG_BLOCK, &held, &before_);
  }
  ~InterruptHold() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  InterruptHold(const InterruptHold&) = delete;
  InterruptHold& operator=(const InterruptHold&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace tarnvale
