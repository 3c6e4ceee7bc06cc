// The command line that an index keeps: the options it was built with, and the names of its files.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "check/report.h"
#include "cmdline/environment.h"
#include "cmdline/file_names.h"
#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/tracked_files.h"
#include "format/isi_format.h"

namespace tarnvale {

/// The settings of the stored command. Nothing, and a difference, when no build can have had it.
[[nodiscard]] std::optional<Settings> readStoredCommand(const IsiHeader& header, const Environment& environment,
                                                        Messages& messages, Report& report);

/// Entries that a build with these settings puts into a node of so many.
[[nodiscard]] inline std::uint32_t builtFill(const Settings& settings, std::uint32_t entriesPerNode) {
  return entriesPerNode * settings.maxFillPercent / 100;
}

/// True when a file that was named like this on a command line may have this name. The directory, which a search path
/// or a volume can tell, does not count, nor does the extension where none was written.
[[nodiscard]] bool mayName(std::string_view written, std::string_view name);

/// Compares the names in the command and of the open data file with the data file's name in the header, and that of the
/// index, which differs in a copy: then there is a note.
void checkNames(const Settings& settings, const IsiHeader& header, const TrackedFiles& files, const FileNaming& naming,
                Report& report);

}  // namespace tarnvale
