// The command line stored in the header of an index: what `-i` shows and `-r` runs again.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

using StoredCommandLine = FixedText<maxStoredCommandLine + 1>;

/// Finds the index file that `inputName` names and opens it for reading; `outputName` becomes its name, and the
/// descriptor is the caller's. -100 name not resolved, -101 not opened; the message is in `messageBuffer`.
[[nodiscard]] StatusCode openNamedIndex(RunContext& run, int& fd);

/// Finds the index file that `inputName` names, reads its stored command line into `stored` and prints it.
/// -100 name not resolved, -101 not opened, -102 no index file, -103 nothing stored; the message is in `messageBuffer`.
[[nodiscard]] StatusCode showIndexInformation(RunContext& run, StoredCommandLine& stored);

/// The name of the data file that an open index file is over; empty when the file is too short to tell.
[[nodiscard]] FixedText<256> indexedDataName(int fd);

/// Leaves the message of a stored command line that cannot be used in `messageBuffer` and returns -103.
[[nodiscard]] StatusCode failWithoutKeyInformation(RunContext& run);

}  // namespace tarnvale
