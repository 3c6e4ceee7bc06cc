// The command line stored in the header of an index: what `-i` shows and `-r` runs again.
#pragma once

#include <string_view>

#include "cmdline/file_names.h"
#include "common/messages.h"
#include "common/status_code.h"
#include "format/isi_format.h"

namespace tarnvale {

/// A command line read from an index.
struct StoredCommand {
  FileName indexName;                           // of the index, as it was found
  FixedText<maxStoredCommandLine + 1> command;  // data,index,rest
};

/// Finds the index file that `asWritten` names and opens it for reading: `name` becomes its name, `fd` a descriptor
/// that the caller owns. -100 name not resolved, -101 not opened; the message is in the messages' buffer.
[[nodiscard]] StatusCode openNamedIndex(const FileNaming& naming, Messages& messages, std::string_view asWritten,
                                        FileName& name, int& fd);

/// Finds the index file that `asWritten` names, reads its stored command line and prints it. -100 name not resolved,
/// -101 not opened, -102 no index file, -103 nothing stored; the message is in the messages' buffer.
[[nodiscard]] StatusCode showIndexInformation(const FileNaming& naming, Messages& messages, std::string_view asWritten,
                                              StoredCommand& stored);

/// Composes the message of a stored command line that cannot be used and returns -103.
[[nodiscard]] StatusCode failWithoutKeyInformation(Messages& messages, std::string_view indexName);

/// The name of the data file that an open index file is over; empty when the file is too short to tell.
[[nodiscard]] FixedText<256> indexedDataName(int fd);

}  // namespace tarnvale
