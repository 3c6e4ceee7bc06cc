// The command line: from text to the settings and open files of a run.
//
//   data[,isi[,Lnnn[,tmppath]]] -opts     build an index, or compact one with option c
//   isi -i    isi -r                      show how an index was built, or build it again
#pragma once

#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

/// Parses the command line and opens the files of the run. 0: a build or compaction is ready. -20: the display is
/// finished. -12: the usage text is asked for. Any other code is a failure; where the code has no fixed text, its
/// message is in `messageBuffer`.
[[nodiscard]] StatusCode parseCommandLine(RunContext& run, std::string_view commandLine);

/// Parses the command line that an index keeps, in place of the one before, and opens the files of its build. -103 when
/// it asks for something else, any other code as parseCommandLine.
[[nodiscard]] StatusCode parseStoredCommand(RunContext& run, std::string_view stored);

/// Reads the settings that say how files are named and found.
void readEnvironment(RunContext& run);

}  // namespace tarnvale
