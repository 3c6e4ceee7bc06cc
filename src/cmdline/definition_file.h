// The definition file of the terminal: how the extension of a file name is written, and which one is the default.
#pragma once

#include "cmdline/environment.h"
#include "common/fixed_text.h"

namespace tarnvale {

struct Definition {
  char extensionSeparator = '.';
  FixedText<6> dataExtension;   // "." and up to 4 characters; .TXT without a file
  FixedText<6> indexExtension;  // .ISI without a file
};

/// Reads the file of the terminal that the environment names; what it does not tell keeps its default.
[[nodiscard]] Definition readDefinitionFile(const Environment& environment);

}  // namespace tarnvale
