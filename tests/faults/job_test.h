// Jobs that are run under faults and signals, and what must hold after each run.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "faults/fault_layer.h"
#include "support/test_folder.h"

namespace tarnvale {

using Files = std::map<std::string, std::string>;  // their bytes by their names

struct LoggedCall : CallRecord {
  std::string bytes;  // the payload

  [[nodiscard]] std::string_view what() const { return name; }
  [[nodiscard]] std::string_view onFile() const { return file; }
};

/// A run under the fault layer, and all that is there afterwards.
struct Outcome {
  int exitStatus = -1;  // -1: a signal ended it
  std::string output;   // of both streams, without the line of times
  bool showsTimes = false;
  Files files;
  std::vector<LoggedCall> calls;

  [[nodiscard]] bool says(std::string_view text) const { return output.find(text) != std::string::npos; }
  /// True when a call of this name on this file failed.
  [[nodiscard]] bool failed(std::string_view call, std::string_view file) const;
  [[nodiscard]] std::string describe(std::size_t number) const;
};

enum class Does { builds, rebuilds, compactsInPlace, shows, refuses };

struct Job {
  const char* name;
  std::string data;
  std::vector<std::string> preparation;  // runs before, without faults
  std::string arguments;                 // of the program, or of another one where they begin with "check" or "read"
  Does does = Does::builds;
  std::string laterData = "";  // the data file after the preparation
};

std::ostream& operator<<(std::ostream& stream, const Job& job);

const std::vector<Job>& allJobs();
/// Those of these names.
std::vector<Job> jobsNamed(const std::vector<std::string>& names);

/// A job, the files that it begins with, and its run without faults.
class JobTest : public testing::TestWithParam<Job> {
 protected:
  JobTest();
  /// Runs any job on these files.
  Outcome run(const Files& files, const std::string& arguments, const std::string& faults = "");
  Outcome run(const std::string& faults) { return run(before, job.arguments, faults); }
  /// What does not hold after a run with faults; empty when all is well.
  [[nodiscard]] std::string troubleOf(const Outcome& now, bool interrupted) const;

  const Job& job = GetParam();
  Files before;
  Outcome clean;

 private:
  [[nodiscard]] std::string troubleOfFiles(const Outcome& now) const;
  [[nodiscard]] std::string troubleOfList(const Outcome& now, bool interrupted) const;
  [[nodiscard]] std::string troubleInPlace(const Outcome& now, bool interrupted) const;
  [[nodiscard]] std::string troubleAfterFailure(const Outcome& now, bool interrupted) const;

  TestFolder folder_;
  TestFolder notes_;  // the log of calls
  Files present_;     // in the folder
};

}  // namespace tarnvale
