// The version of the programs.
#pragma once

namespace tarnvale {

inline constexpr const char* versionText = "Version " TARNVALE_VERSION "  " TARNVALE_RELEASE_DATE;

}  // namespace tarnvale
