#include "common/interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"

namespace tarnvale {

namespace {

// What the handler knows of the run. It changes while interrupts are held.
TrackedFiles* trackedFiles = nullptr;
int interruptedExitStatus = 1;
int settledExitStatus = -1;  // of a run that is over but for its last message
std::string_view settledMessage;

// A reader that has stopped reading must not stop the process from ending.
void writeLastMessage(std::string_view message) {
  constexpr int patienceMilliseconds = 1000;
  const int fd = trackedFiles->messageFd;
  if (message.empty() || !acceptsOutput(fd, patienceMilliseconds)) return;
  static_cast<void>(writeAll(fd, message.data(), message.size()));
}

extern "C" void onInterrupt(int /*signal*/) {
  if (settledExitStatus >= 0) {
    writeLastMessage(settledMessage);
    ::_exit(settledExitStatus);
  }
  releaseAllFiles(*trackedFiles, RunEnd::failure);
  writeLastMessage({trackedFiles->messages.bytes, trackedFiles->messages.size});
  writeLastMessage("Processing aborted via user interrupt.\n");
  ::_exit(interruptedExitStatus);
}

void installHandler(int signal, bool evenIfIgnored) {
  struct sigaction before {};
  if (!evenIfIgnored && sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  action.sa_mask = endingSignals();
  sigaction(signal, &action, nullptr);
}

}  // namespace

void openStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is given: here it is the closed descriptor.
    if (::fcntl(fd, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
  }
}

void installInterruptHandler(TrackedFiles& files, int exitStatus) {
  trackedFiles = &files;
  interruptedExitStatus = exitStatus;
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  installHandler(SIGINT, true);
  installHandler(SIGTERM, false);
  installHandler(SIGHUP, false);
}

void settleExitStatus(int exitStatus, std::string_view lastMessage) {
  settledMessage = lastMessage;
  settledExitStatus = exitStatus;
}

void takeBackLastMessage() { settledMessage = {}; }

}  // namespace tarnvale
