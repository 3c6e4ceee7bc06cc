// One check of an index file.
#pragma once

#include "common/tracked_files.h"

namespace tarnvale {

struct CheckOptions {
  bool quiet = false;          // nothing is said
  bool structureOnly = false;  // the data file is not read
  const char* indexName = "";
};

/// What a check comes to; the exit status of the program.
enum class Verdict : std::uint8_t { right = 0, wrong = 1, notChecked = 2 };

/// Checks the index and says what it found. `files` are those that an interrupt cleans up; they are left closed.
[[nodiscard]] Verdict checkIndex(const CheckOptions& options, TrackedFiles& files);

}  // namespace tarnvale
