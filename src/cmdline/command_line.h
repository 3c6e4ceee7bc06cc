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

}  // namespace tarnvale
