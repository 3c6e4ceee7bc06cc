#include "faults/job_test.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
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
    LoggedCall& call = calls.emplace_back();
    std::memcpy(static_cast<CallRecord*>(&call), &log[place], sizeof(CallRecord));
    place += sizeof(CallRecord);
    call.bytes = log.substr(place, call.payload);
    place += call.payload;
  }
  return calls;
}

// The program that the first word names, unless it is the one that builds.
const char* readerOf(const std::string& arguments) {
  if (arguments.starts_with("check ")) return TARNVALE_CHECK_PROGRAM;
  return arguments.starts_with("read ") ? TARNVALE_READ_PROGRAM : nullptr;
}

constexpr const char* listIncomplete = "Unable to write all duplicate keys";

bool holds(const Files& files, const std::string& name, const std::string& bytes) {
  const auto found = files.find(name);
  return found != files.end() && found->second == bytes;
}

// True for a file that stays only since it could not be deleted; an index must at least be empty then.
bool couldNotBeDeleted(const Outcome& now, const std::string& name, const std::string& bytes) {
  const bool emptied =
      bytes.empty() || !name.ends_with(".isi") || now.failed("ftruncate", name) || now.failed("truncate", name);
  return now.failed("unlink", name) && emptied;
}

}  // namespace

bool Outcome::failed(std::string_view call, std::string_view file) const {
  return std::ranges::any_of(calls, [&](const LoggedCall& logged) {
    return logged.error != 0 && logged.what() == call && logged.onFile().ends_with(file);
  });
}

std::string Outcome::describe(std::size_t number) const {
  const LoggedCall& call = calls[number - 1];
  return call.name + (" " + std::string(call.file)) + " " + std::to_string(call.size) + "@" +
         std::to_string(call.offset);
}

JobTest::JobTest() {
  if (!job.data.empty()) before["data.txt"] = job.data;
  for (const std::string& arguments : job.preparation) before = run(before, arguments).files;
  if (!job.laterData.empty()) before["data.txt"] = job.laterData;
  clean = run("");
  EXPECT_EQ(clean.exitStatus, job.does == Does::refuses ? 1 : 0) << clean.output;
  EXPECT_GT(clean.calls.size(), 3U) << "the layer sees nothing: is it preloaded?";
}

Outcome JobTest::run(const Files& files, const std::string& arguments, const std::string& faults) {
  for (const auto& [name, bytes] : present_) {
    if (!files.contains(name)) std::filesystem::remove(folder_.path(name));
  }
  for (const auto& [name, bytes] : files) {
    if (!holds(present_, name, bytes)) folder_.write(name, bytes);
  }
  const auto preloadLayer = [&] {
    ::dup2(STDOUT_FILENO, STDERR_FILENO);
    ::setenv("LD_PRELOAD", TARNVALE_FAULT_LAYER, 1);
    ::setenv("TARNVALE_FAULTS", faults.c_str(), 1);
    ::setenv("TARNVALE_FAULT_LOG", notes_.path("log").c_str(), 1);
  };
  const char* const reader = readerOf(arguments);
  const std::string rest = reader == nullptr ? arguments : arguments.substr(arguments.find(' ') + 1);
  const ProgramResult result = runProgram(folder_, rest, preloadLayer, reader == nullptr ? TARNVALE_PROGRAM : reader);
  Outcome outcome;
  outcome.exitStatus = result.exitStatus;
  std::istringstream names(folder_.names());
  for (std::string name; names >> name;) outcome.files[name] = folder_.read(name);
  present_ = outcome.files;
  outcome.calls = readLog(notes_.read("log"));
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    const bool times = line.starts_with("Start time = ");
    outcome.showsTimes |= times;
    if (!times) outcome.output += line + "\n";
  }
  return outcome;
}

std::string JobTest::troubleOf(const Outcome& now, bool interrupted) const {
  if (now.exitStatus < 0 && interrupted && now.files == before) return "";  // before there was a handler
  const bool reads = readerOf(job.arguments) != nullptr;
  if (now.exitStatus < 0 || now.exitStatus > (reads ? 2 : 1) || (interrupted && reads && now.exitStatus == 1))
    return "exit status " + std::to_string(now.exitStatus);
  if (now.exitStatus == 0 && clean.exitStatus == 1) return "success of what must fail";
  if (interrupted && now.exitStatus > 0 && !now.output.ends_with("Processing aborted via user interrupt.\n"))
    return "interrupted without saying so";
  if (now.exitStatus == 0 && now.showsTimes != clean.showsTimes) return "success without the line of times";
  if (const std::string trouble = troubleOfList(now, interrupted); !trouble.empty()) return trouble;
  if (now.exitStatus == 0 && job.does == Does::shows && now.output != clean.output)
    return "success, but shows something else";
  if (now.exitStatus == 0 || (clean.exitStatus == 1 && now.output == clean.output)) return troubleOfFiles(now);
  return troubleAfterFailure(now, interrupted);
}

// The run ended as it does without faults.
std::string JobTest::troubleOfFiles(const Outcome& now) const {
  const bool toldOfList = now.says(listIncomplete);
  for (const auto& [name, bytes] : clean.files) {
    if (!holds(now.files, name, bytes) && !(name.ends_with(".ERR") && toldOfList))
      return "ended well, but wrong or no " + name;
  }
  for (const auto& [name, bytes] : now.files) {
    if (!clean.files.contains(name) && !couldNotBeDeleted(now, name, bytes)) return "ended well, but left " + name;
  }
  return "";
}

// An index being compacted: whole under its name, or else whole in the backup, which the messages name.
std::string JobTest::troubleInPlace(const Outcome& now, bool interrupted) const {
  const std::string& old = before.at("idx.isi");
  const auto index = now.files.find("idx.isi");
  const bool restored = index != now.files.end() && index->second.starts_with(old);  // unused nodes may follow
  const bool whole = restored || holds(now.files, "idx.isi", clean.files.at("idx.isi"));
  const bool backup = now.files.contains("idx.isi.bak");
  const bool named = now.says("idx.isi.bak");
  if (!whole && !holds(now.files, "idx.isi.bak", old)) return "no whole index, nor a whole backup";
  if (!whole && !interrupted && !named) return "backup not named";
  if (whole && backup && !interrupted && !named && !now.failed("unlink", "idx.isi.bak")) return "needless backup left";
  return "";
}

// Of the list of duplicate keys there are whole lines, and it is told when its last ones may not have reached the disk.
std::string JobTest::troubleOfList(const Outcome& now, bool interrupted) const {
  const auto list = now.files.find("idx.ERR");
  if (list == now.files.end() || list->second.empty()) return "";
  const auto whole = clean.files.find("idx.ERR");
  if (whole == clean.files.end() || !whole->second.starts_with(list->second)) return "wrong list of duplicates";
  if (interrupted) return list->second.ends_with("\r\n") ? "" : "list of duplicates cut inside a line";
  const bool doubtful = std::ranges::any_of(now.calls, [](const LoggedCall& call) {
    return call.what() == "close" && call.onFile() == "idx.ERR" && call.error != 0 && call.error != EINTR;
  });
  return doubtful && !now.says(listIncomplete) ? "silent about a list not closed" : "";
}

std::string JobTest::troubleAfterFailure(const Outcome& now, bool interrupted) const {
  const bool inPlace = job.does == Does::compactsInPlace;
  const std::string input = clean.files.contains("new.isi") ? "idx.isi" : "data.txt";
  bool told = false;
  std::istringstream lines(now.output);
  for (std::string line; std::getline(lines, line);) told |= !clean.says(line + "\n");
  if (!told) return "failure without a message";
  for (const auto& [name, bytes] : before) {
    const bool index = name == "idx.isi" && (inPlace || job.does == Does::rebuilds);
    if (!index && !holds(now.files, name, bytes)) return "failure that touched " + name;
  }
  for (const auto& [name, bytes] : now.files) {
    const bool inputNotClosed = name != input && now.failed("close", input) && holds(clean.files, name, bytes);
    const bool madeEmpty = name == "data.txt" && bytes.empty() && !interrupted;  // documented: it stays
    const bool known = holds(before, name, bytes) || name.ends_with(".ERR") || couldNotBeDeleted(now, name, bytes) ||
                       inputNotClosed || madeEmpty;
    if (!known && !(inPlace && name.starts_with("idx.isi"))) return "failure that left " + name;
  }
  return inPlace ? troubleInPlace(now, interrupted) : "";
}

}  // namespace tarnvale
