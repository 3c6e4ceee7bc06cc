// Runs one command and writes what it took into a file: seconds of wall, user and system time, the peak of its memory
// in KiB, and its exit status.
//
//   measure RESULT COMMAND...
//
// A program of its own, because a process starts with the peak of the one that started it: seen from a script, no
// command would take less memory than the script's interpreter.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

#include <cstdio>

extern char** environ;

namespace {

double secondsNow() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount < 3) {
    std::fputs("usage: measure RESULT COMMAND...\n", stderr);
    return 2;
  }
  pid_t child = 0;
  const double start = secondsNow();
  if (::posix_spawnp(&child, arguments[2], nullptr, nullptr, arguments + 2, environ) != 0) {
    std::fprintf(stderr, "cannot start %s\n", arguments[2]);
    return 2;
  }
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  const double wall = secondsNow() - start;
  std::FILE* const result = std::fopen(arguments[1], "w");
  if (result == nullptr) return 2;
  std::fprintf(result, "%.6f %.6f %.6f %ld %d\n", wall, seconds(usage.ru_utime), seconds(usage.ru_stime),
               usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  return std::fclose(result) == 0 ? 0 : 2;
}
