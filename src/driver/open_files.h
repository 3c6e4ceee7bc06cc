// From the text of a command line to its settings and open files.
#pragma once

#include <string_view>

#include "cmdline/environment.h"
#include "cmdline/file_names.h"
#include "driver/run_context.h"

namespace tarnvale {

/// Parses the command line into the settings and makes the work files. 0, -12 when the usage text is asked for, or the
/// code of a failure.
[[nodiscard]] StatusCode readCommand(RunContext& run, std::string_view commandLine, const Environment& environment);

/// Shows the command line that the index named by the settings keeps. For a display -20; for a reindex that command
/// line takes the place of the one given, and the code is that of reading it, or -103 when it builds nothing.
[[nodiscard]] StatusCode readStoredCommand(RunContext& run, const Environment& environment, const FileNaming& naming);

/// Opens the files that the settings ask for and says what is about to be done. `scanBuffer` has scanBufferSize bytes.
[[nodiscard]] StatusCode openRunFiles(RunContext& run, const FileNaming& naming, std::uint8_t* scanBuffer);

}  // namespace tarnvale
