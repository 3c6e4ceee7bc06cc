// The header of a finished index.
#pragma once

#include <cstdint>
#include <string_view>

#include "cmdline/settings.h"
#include "data/scanner.h"
#include "format/isi_format.h"

namespace tarnvale {

/// The header that describes a build: what was asked for, the form of the records, and what the scan found, which is
/// over and knows the record length (a `recordLimit` above 0). `dataName` is the data file's name as it was opened.
[[nodiscard]] IsiHeader makeHeader(const Settings& settings, const Scanner& scanner, std::string_view dataName,
                                   std::uint32_t deletedListHead);

}  // namespace tarnvale
