// The header of an index, for people and for programs.
#pragma once

#include "isi/isi_handle.h"
#include "read/text_output.h"

namespace tarnvale {

/// Writes a line in words for each field, or all as members of one JSON object.
void putHeader(TextOutput& output, const IsiHandle& index, bool json);

}  // namespace tarnvale
