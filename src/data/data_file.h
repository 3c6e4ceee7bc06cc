// The data file: found, opened and examined before any record is read.
#pragma once

#include <cstdint>
#include <span>

#include "cmdline/file_names.h"
#include "cmdline/settings.h"
#include "common/messages.h"
#include "common/status_code.h"
#include "common/tracked_files.h"
#include "data/end_of_record.h"

namespace tarnvale {

/// The form of the records, as the options and the end of the file tell it. All lengths are bytes.
struct RecordFormat {
  EndOfRecordMark mark;           // with option f of length 0
  std::uint32_t givenLength = 0;  // asked for on the command line, end-of-record mark included; 0: none
  // Of every record of a fixed-length file, or of the longest allowed one; end-of-record mark included. 0: the first
  // record decides.
  std::uint32_t recordLimit = 0;
};

/// The data file of a build. Its descriptor and name are tracked as FileRole::input.
struct DataFile {
  FileNameParts nameParts;
  RecordFormat format;
};

/// What to do when the data file cannot be opened.
enum class IfMissing : std::uint8_t { create, fail };

/// Opens the data file `name` and finds out its format, with `buffer` (65,536 bytes) to read its end in. 0; -116 name
/// not resolved, -120 not opened, -121 not measured, -122 and -123 name too long for an index header, -138 too large
/// for byte offsets, -160 record length unknown, -161 record too long. The message is in the messages' buffer.
[[nodiscard]] StatusCode openDataFile(DataFile& data, TrackedFiles& files, Messages& messages, const Settings& settings,
                                      const FileNaming& naming, std::string_view name, IfMissing ifMissing,
                                      std::span<std::uint8_t> buffer);

/// False when a file of binary records ends inside one.
[[nodiscard]] bool hasWholeRecords(const DataFile& data, const TrackedFile& file, const Settings& settings);

}  // namespace tarnvale
