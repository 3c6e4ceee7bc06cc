// The definition file of the application environment: extension separator and default extensions.
#pragma once

#include "common/run_context.h"

namespace tarnvale {

/// Sets `extensionSeparator`, `defaultDataExtension` and `defaultIndexExtension` to "." ".TXT" ".ISI", then to what the
/// definition file of the terminal says, when there is one. A file that is short, or whose extensions are longer than
/// 4 characters, is ignored.
void readDefinitionFile(RunContext& run);

}  // namespace tarnvale
