#include "faults/faulty_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace tarnvale {

namespace {

std::vector<LoggedCall> readLog(const std::string& log) {
  std::vector<LoggedCall> calls;
  for (std::size_t place = 0; place + sizeof(CallRecord) <= log.size();) {
    LoggedCall& call = calls.emplace_back();
    std::memcpy(static_cast<CallRecord*>(&call), &log[place], sizeof(CallRecord));
    place += sizeof(CallRecord);
    call.bytes = log.substr(place, call.payload);
    place += call.payload;
  }
  return calls;
}

// The exit status of the program that the first word names, or of the one that builds; -1 when a signal ended it. Not
// by a fork, which takes longer than many a run.
int runToEnd(std::vector<std::string> words, const std::string& folder, const std::string& output) {
  const char* program = TARNVALE_PROGRAM;
  if (words[0] == "check") program = TARNVALE_CHECK_PROGRAM;
  if (words[0] == "read") program = TARNVALE_READ_PROGRAM;
  if (words[0] != "check" && words[0] != "read") words.insert(words.begin(), program);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND,
                                     0666);
  ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  ::posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  pid_t process = -1;
  ::posix_spawn(&process, program, &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  int state = 0;
  ::waitpid(process, &state, 0);
  return WIFEXITED(state) ? WEXITSTATUS(state) : -1;
}

}  // namespace

bool Outcome::failed(std::string_view call, std::string_view file) const {
  return std::ranges::any_of(calls, [&](const LoggedCall& logged) {
    return logged.error != 0 && logged.what() == call && logged.onFile().ends_with(file);
  });
}

std::string Outcome::describe(std::size_t number) const {
  const LoggedCall& call = calls[number - 1];
  const std::string file(call.onFile());
  const std::string place = call.size == 0 ? "" : " " + std::to_string(call.size) + "@" + std::to_string(call.offset);
  return call.name + (" " + file.substr(file.rfind('/') + 1) + place);
}

Outcome Workshop::run(const Files& before, const std::string& arguments, const std::string& faults) {
  for (const auto& [name, bytes] : present_) {
    if (!before.contains(name)) std::filesystem::remove(folder_.path(name));
  }
  for (const auto& [name, bytes] : before) {
    const auto found = present_.find(name);
    if (found == present_.end() || found->second != bytes) folder_.write(name, bytes);
  }
  ::setenv("TMPDIR", folder_.path("tmp").c_str(), 1);
  ::setenv("LD_PRELOAD", TARNVALE_FAULT_LAYER, 1);
  ::setenv("TARNVALE_FAULTS", faults.c_str(), 1);
  ::setenv("TARNVALE_FAULT_LOG", notes_.path("log").c_str(), 1);
  std::istringstream words(arguments);
  Outcome outcome;
  outcome.exitStatus = runToEnd({std::istream_iterator<std::string>(words), {}}, folder_.path(), notes_.path("output"));
  std::istringstream names(folder_.names());
  for (std::string name; names >> name;) outcome.files[name] = folder_.read(name);
  present_ = outcome.files;
  outcome.calls = readLog(notes_.read("log"));
  std::istringstream lines(notes_.read("output"));
  for (std::string line; std::getline(lines, line);) {
    const bool times = line.starts_with("Start time = ");
    outcome.showsTimes |= times;
    if (!times) outcome.output += line + "\n";
  }
  return outcome;
}

bool isInShare(std::size_t number, std::size_t every) {
  return std::getenv("TARNVALE_ALL_FAULTS") != nullptr || number % every == 0;
}

}  // namespace tarnvale
