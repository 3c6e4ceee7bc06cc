// The command line: from text to settings.
//
//   data[,isi[,Lnnn[,tmppath]]] -opts     build an index, or compact one with option c
//   isi -i    isi -r                      show how an index was built, or build it again
#pragma once

#include <string_view>

#include "cmdline/environment.h"
#include "cmdline/settings.h"
#include "common/function_ref.h"
#include "common/messages.h"
#include "common/status_code.h"

namespace tarnvale {

/// A parsed command line. The settings hold what was read until the failure, if there was one.
struct ParsedCommand {
  StatusCode status = status::success;
  Settings settings;
};

/// Parses the command line. `afterFields` is called once, when the file fields are known and before the options are
/// read: the place where the work files are made; its failure ends the parsing. A failure is one code; where the code
/// has no fixed text, its message is in the messages' buffer. -12: the usage text is asked for.
[[nodiscard]] ParsedCommand parseCommandLine(std::string_view commandLine, const Environment& environment,
                                             Messages& messages, FunctionRef<StatusCode(const Settings&)> afterFields);

}  // namespace tarnvale
