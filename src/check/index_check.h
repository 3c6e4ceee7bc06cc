// One check of an index file.
#pragma once

namespace tarnvale {

struct CheckOptions {
  bool quiet = false;          // nothing is said
  bool structureOnly = false;  // the data file is not read
  bool dump = false;           // the entries are written, and the structure checked
  const char* indexName = "";
};

/// Checks the index, says what it found, and returns the exit status: 0 when all is right, 1 when something differs or
/// could not be checked.
[[nodiscard]] int checkIndex(const CheckOptions& options);

}  // namespace tarnvale
