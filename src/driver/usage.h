// The usage text.
#pragma once

#include "common/messages.h"

namespace tarnvale {

/// Writes the usage text to the message stream.
void showUsage(Messages& messages);

}  // namespace tarnvale
