// A program started under the fault layer, and all that is there afterwards.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "faults/fault_layer.h"
#include "support/test_folder.h"

namespace tarnvale {

using Files = std::map<std::string, std::string>;  // their bytes by their names

struct LoggedCall : CallRecord {
  std::string bytes;  // the payload

  [[nodiscard]] std::string what() const { return name; }
  [[nodiscard]] std::string onFile() const { return file; }
};

struct Outcome {
  int exitStatus = -1;  // -1: a signal ended it
  std::string output;   // both streams, which are a file; without the line of times
  bool showsTimes = false;
  Files files;
  std::vector<LoggedCall> calls;

  /// True when a call of this name on this file failed.
  [[nodiscard]] bool failed(const std::string& call, const std::string& file) const;
  /// The call, or nothing.
  [[nodiscard]] std::string describe(std::size_t number) const;
};

/// A folder in which runs begin with the same files.
class Workshop {
 public:
  /// Runs the program on `arguments`, or another one where they begin with "check " or "read ". A run that hangs is
  /// ended.
  Outcome run(const Files& before, const std::string& arguments, const std::string& faults = "") const;

 private:
  [[nodiscard]] Files files() const;
  void put(const Files& wanted) const;

  TestFolder folder_;
  TestFolder notes_;  // log and output
};

/// True for a share of the cases, so that all of them take less than a minute; for each one when the environment holds
/// TARNVALE_ALL_FAULTS. `number` counts the cases.
bool isInShare(std::size_t number, std::size_t every);

}  // namespace tarnvale
