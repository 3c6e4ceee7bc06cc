// The files of a check: the index, and the data file that it is over. Neither is ever changed.
#pragma once

#include <cstdint>
#include <span>

#include "check/report.h"
#include "cmdline/file_names.h"
#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/tracked_files.h"
#include "data/data_file.h"
#include "isi/isi_handle.h"

namespace tarnvale {

/// Finds and opens the index file, FileRole::index. False, reported, when that fails.
[[nodiscard]] bool openCheckedIndex(const char* asWritten, const FileNaming& naming, TrackedFiles& files,
                                    Messages& messages, Report& report);

/// Reads the header area of the open index file. False, and a difference, when it is not that of an index.
[[nodiscard]] bool readIndex(IsiHandle& index, const TrackedFile& file, Report& report);

/// Opens the data file, FileRole::input, as the stored command names it, or else as the header does, here or beside the
/// index; finds out its format, with `buffer` (65,536 bytes), and takes the locks of a reader. False, reported, when
/// that fails.
[[nodiscard]] bool openCheckedData(DataFile& data, const Settings& settings, const IsiHeader& header,
                                   const FileNaming& naming, std::span<std::uint8_t> buffer, TrackedFiles& files,
                                   Messages& messages, Report& report);

/// Takes the locks of a reader on the data file that the header names, if it is there: an index may be looked at where
/// its data file is not. False, reported, when they are refused.
[[nodiscard]] bool shareDataFile(const IsiHeader& header, TrackedFiles& files, Report& report);

}  // namespace tarnvale
