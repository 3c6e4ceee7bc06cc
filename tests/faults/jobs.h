// The jobs that are run under faults and signals, and what must hold after each run.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "faults/faulty_run.h"

namespace tarnvale {

enum class Does { builds, rebuilds, compactsInPlace, shows, refuses };

struct Job {
  const char* name;
  std::string data;
  std::vector<std::string> preparation;  // runs before, without faults
  std::string arguments;
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
  Outcome run(const std::string& faults) { return workshop.run(before, job.arguments, faults); }
  /// What does not hold after a run with faults; empty when all is well.
  [[nodiscard]] std::string troubleOf(const Outcome& now, bool interrupted = false) const;

  const Job& job = GetParam();
  Workshop workshop;
  Files before;
  Outcome clean;

 private:
  [[nodiscard]] std::string troubleOfFiles(const Outcome& now) const;
  [[nodiscard]] std::string troubleOfList(const Outcome& now, bool interrupted) const;
  [[nodiscard]] std::string troubleInPlace(const Outcome& now, bool interrupted) const;
  [[nodiscard]] std::string troubleAfterFailure(const Outcome& now, bool interrupted) const;
};

}  // namespace tarnvale
