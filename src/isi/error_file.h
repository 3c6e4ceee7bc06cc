// The error file: the list of duplicate keys.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

/// Reports an entry whose key equals the one before, where a report is wanted: in the error file, and among the
/// messages when duplicates are not allowed. Every key byte is written as it is.
void reportDuplicate(RunContext& run, const std::uint8_t* entry);

/// Adds a line to the error file, if there is one; CR LF ends it. Lines are collected in `errorFileBuffer`.
void putErrorFileLine(RunContext& run, std::string_view line);

/// Writes the collected lines and closes the error file. A failed write is told once.
void closeErrorFile(RunContext& run);

}  // namespace tarnvale
