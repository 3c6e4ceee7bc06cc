// A program started under the fault layer, and all that is there afterwards.
#pragma once

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

struct Outcome {
  int exitStatus = -1;  // -1: a signal ended it
  std::string output;   // both streams, which are a file; without the line of times
  bool showsTimes = false;
  Files files;
  std::vector<LoggedCall> calls;

  [[nodiscard]] bool says(std::string_view text) const { return output.find(text) != std::string::npos; }
  /// True when a call of this name on this file failed.
  [[nodiscard]] bool failed(std::string_view call, std::string_view file) const;
  [[nodiscard]] std::string describe(std::size_t number) const;
};

/// A folder in which runs begin with the same files.
class Workshop {
 public:
  /// Runs the program on `arguments`, or another one where they begin with "check" or "read".
  Outcome run(const Files& before, const std::string& arguments, const std::string& faults = "");

 private:
  TestFolder folder_;
  TestFolder notes_;  // log and output
  Files present_;     // in the folder
};

/// True for a share of the cases, so that all of them take less than a minute; for each one when the environment holds
/// TARNVALE_ALL_FAULTS. `number` counts the cases.
bool isInShare(std::size_t number, std::size_t every);

}  // namespace tarnvale
