// A file name, and one taken apart.
#pragma once

#include "common/fixed_text.h"

namespace tarnvale {

using FileName = FixedText<512>;

/// A file name taken apart; the directory ends with "/", the extension begins with "." when they are not empty. Each
/// part can hold what a name of 255 characters can hold; the directory may also come from the search path.
struct FileNameParts {
  FixedText<3> drive;  // always empty on this platform
  FileName directory;
  FixedText<256> baseName;
  FixedText<256> extension;
};

}  // namespace tarnvale
