// The fields in front of the options: data[,isi[,Lnnn[,tmppath]]]
#pragma once

#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

/// Reads the four fields from the front of `rest` into `inputName`, `outputName`, `recordLengthSpec` and `tempPath`,
/// and composes `storedCommandLine`. -104 the line ends inside a field, -107 a field is too long, -108 a record length
/// that is none.
[[nodiscard]] StatusCode takeFileFields(RunContext& run, std::string_view& rest);

}  // namespace tarnvale
