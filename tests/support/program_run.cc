#include "support/program_run.h"

#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <vector>

namespace tarnvale {

namespace {

// In a new process.
[[noreturn]] void become(const char* program, const TestFolder& folder, const std::string& arguments,
                         const std::function<void()>& prepare) {
  std::vector<std::string> words = {program};
  std::istringstream rest(arguments);
  for (std::string word; std::getline(rest, word, ' ');) words.push_back(word);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  ::setenv("TMPDIR", folder.path("tmp").c_str(), 1);
  if (::chdir(folder.path().c_str()) != 0) ::_exit(126);
  if (prepare) prepare();
  ::execv(program, argv.data());
  ::_exit(127);
}

// What the process writes there until it closes it, and how it ends.
ProgramResult resultOf(pid_t process, int output) {
  ProgramResult result;
  char piece[4096];
  for (ssize_t count = 0; (count = ::read(output, piece, sizeof piece)) > 0;) {
    result.output.append(piece, static_cast<std::size_t>(count));
  }
  ::close(output);
  int state = 0;
  ::waitpid(process, &state, 0);
  result.exitStatus = WIFEXITED(state) ? WEXITSTATUS(state) : -1;
  return result;
}

}  // namespace

ProgramRun::ProgramRun(const TestFolder& folder, const std::string& arguments, const std::function<void()>& prepare,
                       const char* program) {
  int pipe[2] = {-1, -1};
  if (::pipe(pipe) != 0) std::abort();
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(pipe[1], STDOUT_FILENO);
    ::close(pipe[0]);
    ::close(pipe[1]);
    become(program, folder, arguments, prepare);
  }
  ::close(pipe[1]);
  output_ = pipe[0];
}

void ProgramRun::waitForOutput(int bytes) const {
  for (int ready = 0; ready < bytes; ::ioctl(output_, FIONREAD, &ready)) ::usleep(1000);
}

ProgramResult ProgramRun::finish() const { return resultOf(pid_, output_); }

ProgramResult runProgram(const TestFolder& folder, const std::string& arguments, const std::function<void()>& prepare,
                         const char* program) {
  return ProgramRun(folder, arguments, prepare, program).finish();
}

ProgramResult runAtTerminal(const TestFolder& folder, const std::string& arguments, const char* program) {
  int terminal = -1;
  const pid_t process = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (process == 0) become(program, folder, arguments, {});
  return resultOf(process, terminal);
}

}  // namespace tarnvale
