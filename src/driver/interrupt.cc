#include "driver/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "common/interrupt_hold.h"
#include "common/posix_file.h"
#include "driver/clean_up.h"

namespace tarnvale {

namespace {

RunContext runContext;
volatile std::sig_atomic_t settledExitStatus = -1;  // of a run that is over but for its last messages

void installHandler(int signal, bool evenIfIgnored) {
  struct sigaction before {};
  if (!evenIfIgnored && sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  action.sa_mask = endingSignals();
  sigaction(signal, &action, nullptr);
}

}  // namespace

RunContext& theRun() { return runContext; }

void openStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is given: here it is the closed descriptor.
    if (::fcntl(fd, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
  }
}

void installInterruptHandler() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  installHandler(SIGINT, true);
  installHandler(SIGTERM, false);
  installHandler(SIGHUP, false);
}

void settleExitStatus(int exitStatus) { settledExitStatus = exitStatus; }

void OnInterrupt(int /*signal*/) {
  constexpr std::string_view message = "Processing aborted via user interrupt.\n";
  constexpr int patienceMilliseconds = 1000;
  if (settledExitStatus >= 0) ::_exit(settledExitStatus);
  RunContext& run = runContext;
  if (run.errorFileFd >= 0) {
    static_cast<void>(writeAll(run.errorFileFd, run.errorFileBuffer.data(), run.errorFileBuffered));
    closeFile(run.errorFileFd);
  }
  closeAndRemoveFiles(run, CleanUp::failure);
  // A reader that has stopped reading must not stop the process from ending.
  struct pollfd stream {};
  stream.fd = run.outputStreamFd;
  stream.events = POLLOUT;
  if (stream.fd >= 0 && ::poll(&stream, 1, patienceMilliseconds) == 1) {
    static_cast<void>(writeAll(run.outputStreamFd, message.data(), message.size()));
  }
  ::_exit(1);
}

}  // namespace tarnvale
