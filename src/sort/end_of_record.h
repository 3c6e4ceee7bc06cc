// The end-of-record convention of a text data file, found from its end.
#pragma once

#include <cstdint>
#include <span>

#include "common/run_context.h"

namespace tarnvale {

/// What was found out about the end-of-record mark of a data file.
enum class EorConvention { cr, crLf, lf, lfCr, systemDefault, notDefined, sizeUnknown };

/// Reads the file backwards from its end. The last mark of the file decides: `eorLength`, `eorChar1`, `eorChar2` and
/// `eorCode` are set from it. For a fixed-length text file without a given record length the length of the last record,
/// its mark included, goes to `foundRecordLength`; the other formats look no further back than one chunk (the buffer
/// less one byte). A file without a mark keeps the settings: systemDefault. sizeUnknown: the file cannot be measured or
/// read.
[[nodiscard]] EorConvention DetectEndOfRecord(RunContext& run, int fd, std::span<std::uint8_t> buffer);

/// The words of the diagnostic line.
[[nodiscard]] const char* eorConventionText(EorConvention convention);

}  // namespace tarnvale
