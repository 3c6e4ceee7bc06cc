#include "faults/faulty_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "support/program_run.h"

namespace tarnvale {

namespace {

std::vector<LoggedCall> readLog(const std::string& log) {
  std::vector<LoggedCall> calls;
  for (std::size_t place = 0; place + sizeof(CallRecord) <= log.size();) {
    LoggedCall call;
    std::memcpy(static_cast<CallRecord*>(&call), &log[place], sizeof(CallRecord));
    place += sizeof(CallRecord);
    call.bytes = log.substr(place, call.payload);
    place += call.payload;
    calls.push_back(std::move(call));
  }
  return calls;
}

}  // namespace

bool Outcome::failed(const std::string& call, const std::string& file) const {
  return std::ranges::any_of(calls, [&](const LoggedCall& logged) {
    return logged.error != 0 && logged.what() == call && (file.empty() || logged.onFile().ends_with(file));
  });
}

std::string Outcome::describe(std::size_t number) const {
  if (number == 0 || number > calls.size()) return "no call";
  const LoggedCall& call = calls[number - 1];
  const std::string place = call.size == 0 ? "" : " " + std::to_string(call.size) + "@" + std::to_string(call.offset);
  return call.what() + " " + call.onFile().substr(call.onFile().rfind('/') + 1) + place;
}

Outcome Workshop::run(const Files& before, const std::string& arguments, const std::string& faults) const {
  constexpr unsigned patienceSeconds = 20;
  put(before);
  const auto prepare = [&] {
    const int output = ::open(notes_.path("output").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::close(output);
    ::setenv("LD_PRELOAD", TARNVALE_FAULT_LAYER, 1);
    ::setenv("TARNVALE_FAULTS", faults.c_str(), 1);
    ::setenv("TARNVALE_FAULT_LOG", notes_.path("log").c_str(), 1);
    ::alarm(patienceSeconds);
  };
  const char* program = TARNVALE_PROGRAM;
  std::string rest = arguments;
  constexpr const char* readers[][2] = {{"check ", TARNVALE_CHECK_PROGRAM}, {"read ", TARNVALE_READ_PROGRAM}};
  for (const auto& [word, reader] : readers) {
    if (!arguments.starts_with(word)) continue;
    program = reader;
    rest = arguments.substr(arguments.find(' ') + 1);
  }
  Outcome outcome;
  outcome.exitStatus = runProgram(folder_, rest, prepare, program).exitStatus;
  outcome.files = files();
  outcome.calls = readLog(notes_.read("log"));
  std::istringstream lines(notes_.read("output"));
  for (std::string line; std::getline(lines, line);) {
    const bool times = line.starts_with("Start time = ");
    outcome.showsTimes |= times;
    if (!times) outcome.output += line + "\n";
  }
  return outcome;
}

Files Workshop::files() const {
  Files found;
  std::istringstream names(folder_.names());
  for (std::string name; names >> name;) found[name] = folder_.read(name);
  return found;
}

void Workshop::put(const Files& wanted) const {
  const Files present = files();
  for (const auto& [name, bytes] : present) {
    if (!wanted.contains(name)) std::filesystem::remove(folder_.path(name));
  }
  for (const auto& [name, bytes] : wanted) {
    if (!present.contains(name) || present.at(name) != bytes) folder_.write(name, bytes);
  }
}

bool isInShare(std::size_t number, std::size_t every) {
  return std::getenv("TARNVALE_ALL_FAULTS") != nullptr || number % every == 0;
}

}  // namespace tarnvale
