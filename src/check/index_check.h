// One check of an index file.
#pragma once

#include "common/tracked_files.h"

namespace tarnvale {

struct CheckOptions {
  bool quiet = false;          // nothing is said
  bool structureOnly = false;  // the data file is not read
  const char* indexName = "";
};

/// The exit statuses of the program. An interrupted check is one that could not be made.
namespace check_status {
inline constexpr int right = 0;
inline constexpr int wrong = 1;
inline constexpr int notChecked = 2;
}  // namespace check_status

/// Checks the index, says what it found, and returns the exit status. What it opens and makes is tracked in `files`,
/// and closed and removed at the end.
[[nodiscard]] int checkIndex(const CheckOptions& options, TrackedFiles& files);

}  // namespace tarnvale
