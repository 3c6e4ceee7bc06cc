// The files beside the data file: the index to be made, the one to be compacted, and the error file.
#pragma once

#include <string_view>

#include "cmdline/file_names.h"
#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/status_code.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// Opens the index to be compacted as FileRole::input; `parts` become those of its name. -116 name not resolved, -120
/// not opened; the message is in the messages' buffer.
[[nodiscard]] StatusCode openIndexToCompact(TrackedFiles& files, Messages& messages, const Settings& settings,
                                            const FileNaming& naming, FileNameParts& parts);

/// Creates the index file, FileRole::index, whose name is completed from that of the input; `parts` become those of
/// its name. The file is discarded when the run fails. A compaction whose output has the input's name works in place:
/// `inPlace` is set, and no file is made. -100 name not resolved, -106 not created, -126 the input itself; the message
/// is in the messages' buffer.
[[nodiscard]] StatusCode openIndexFile(TrackedFiles& files, Messages& messages, const Settings& settings,
                                       const FileNaming& naming, const FileNameParts& inputParts, FileNameParts& parts,
                                       bool& inPlace);

/// Creates the error file, FileRole::errorFile, named like the index. -106 not created, with the message in the
/// messages' buffer.
[[nodiscard]] StatusCode openErrorFile(TrackedFiles& files, Messages& messages, const FileNaming& naming,
                                       const FileNameParts& indexParts);

}  // namespace tarnvale
