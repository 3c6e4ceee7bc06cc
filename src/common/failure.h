// What ended a phase: the one shape in which a failure reaches the driver.
#pragma once

#include <cstdint>

#include "common/status_code.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// The result of a phase. Rooms have results of their own; where a phase ends, one place turns them into this.
struct Failure {
  StatusCode code = status::success;
  FileRole file = FileRole::index;  // that could not be read or written
  std::uint64_t offset = 0;         // in the data file, of a record without its end-of-record mark

  [[nodiscard]] bool none() const { return code == status::success; }
};

}  // namespace tarnvale
