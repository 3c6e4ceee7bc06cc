// The jobs that are run under faults and signals, and what must hold after each run.
#pragma once

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
const Job& jobNamed(const std::string& name);

/// The files that a job begins with.
Files filesBefore(const Workshop& workshop, const Job& job);

/// What does not hold after a run with faults, beside the same run without; empty when all is well.
std::string troubleOf(const Job& job, const Files& before, const Outcome& clean, const Outcome& now,
                      bool interrupted = false);

/// What went wrong in many runs: a line each, shown up to a number of them.
class Troubles {
 public:
  void add(const std::string& trouble, const std::string& where);
  [[nodiscard]] std::string text() const;

 private:
  std::size_t count_ = 0;
  std::string text_;
};

}  // namespace tarnvale
