// The fields in front of the options: data[,isi[,Lnnn[,tmppath]]]
#pragma once

#include <string_view>

#include "cmdline/settings.h"
#include "common/status_code.h"

namespace tarnvale {

/// Reads the four fields from the front of `rest` into `dataName`, `indexName`, `recordLength` and `tempPath`, and
/// composes `storedCommandLine`. -104 the line ends inside a field, -107 a field is too long, -108 a record length
/// that is none.
[[nodiscard]] StatusCode takeFileFields(Settings& settings, std::string_view& rest);

}  // namespace tarnvale
