// Signals: an interrupt ends the run and leaves nothing behind.
#pragma once

#include <string_view>

#include "common/tracked_files.h"

namespace tarnvale {

/// Opens the standard descriptors that are closed on /dev/null, so that no file of a run gets their numbers.
void openStandardDescriptors();

/// From here on SIGINT cleans up `files`, which must stay, as after a failure, writes its message and ends the process
/// with this exit status; so do SIGTERM and SIGHUP unless they are ignored. A reader that goes away and a file size
/// limit become failed writes.
void installInterruptHandler(TrackedFiles& files, int exitStatus = 1);

/// The run is over but for its last message: an interrupt now writes that, where the reader takes it, and ends the
/// process with this exit status. `lastMessage` must stay until it is taken back. Interrupts must be held.
void settleExitStatus(int exitStatus, std::string_view lastMessage);

/// The last message has been written: an interrupt does not write it again. Interrupts must be held.
void takeBackLastMessage();

}  // namespace tarnvale
