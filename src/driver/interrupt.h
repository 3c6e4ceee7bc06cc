// Signals: an interrupt ends the run and leaves nothing behind.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// The one record of the process, which the interrupt handler works on.
[[nodiscard]] RunContext& theRun();

/// Opens the standard descriptors that are closed on /dev/null, so that no file of a run gets their numbers.
void openStandardDescriptors();

/// Installs OnInterrupt for SIGINT, and for SIGTERM and SIGHUP unless they are ignored. A reader that goes away and a
/// file size limit become failed writes.
void installInterruptHandler();

/// The run is over but for its last messages: an interrupt now ends the process with this exit status and nothing else.
void settleExitStatus(int exitStatus);

/// Cleans up as after a failure, writes its message and ends the process with exit status 1. Async-signal-safe.
void OnInterrupt(int signal);

}  // namespace tarnvale
