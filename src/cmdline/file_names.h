// File names: volumes, `name/ext`, the search path, and names taken apart and put together.
//
// A name given on the command line is not always a path. It may name a volume (`name:VOLUME`, the volume being a
// directory that an environment variable names), write "/" for the extension separator (`cust/txt`), or lack a
// directory and be found along the search path.
#pragma once

#include <string_view>

#include "common/run_context.h"

namespace tarnvale {

inline constexpr std::size_t nameCapacity = 256;  // a resolved name is shorter than this

/// Resolves the volume of a name and a "/" that stands for the extension separator, in place. The length of the
/// resulting name; 0, and the name unchanged, when it is empty or the result would not be shorter than `capacity`.
[[nodiscard]] std::size_t resolveFileName(const RunContext& run, FileName& name, std::size_t capacity,
                                          char extensionSeparator);

/// Takes a name apart: everything up to the last "/", the rest up to its last ".", and from that "." on. False when a
/// part does not fit.
[[nodiscard]] bool splitFileName(std::string_view name, FileNameParts& parts);

/// Puts the parts together, folded to lower case when `foldFileNameCase` is set. False when they do not fit.
[[nodiscard]] bool buildFileName(const RunContext& run, FileName& name, const FileNameParts& parts);

/// Looks for a name without directory in the current directory, then along the search path (elements separated by
/// ":"). Found on the path: the element and a "/" become the directory. The length of the directory written, or 0.
std::size_t searchFilePath(RunContext& run, std::string_view name, FileName& directory, std::string_view path);

/// Builds the name of the parts into `name`, after looking for it along the search path when there is one and the parts
/// have no directory. False when a name does not fit.
[[nodiscard]] bool findAndBuildFileName(RunContext& run, FileName& name, FileNameParts& parts);

/// Creates the file, or opens and empties an existing one; reading and writing. A descriptor that the caller owns, or
/// -1. An existing file that is no regular file, or that is open as `keepFd1` or `keepFd2`, is left alone: -1, errno
/// EEXIST.
[[nodiscard]] int createFile(const char* name, int keepFd1, int keepFd2);

/// 0 when the names are equal, byte by byte.
[[nodiscard]] inline int sameFileName(std::string_view a, std::string_view b) { return a.compare(b); }

/// Folds A-Z of the text to a-z in place.
void lowerCaseName(FileName& name);

}  // namespace tarnvale
