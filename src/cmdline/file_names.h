// File names: volumes, `name/ext`, the search path, and names taken apart and put together.
//
// A name given on the command line is not always a path. It may name a volume (`name:VOLUME`, the volume being a
// directory that an environment variable names), write "/" for the extension separator (`cust/txt`), or lack a
// directory and be found along the search path.
#pragma once

#include <string_view>

#include "cmdline/environment.h"
#include "common/file_name.h"

namespace tarnvale {

inline constexpr std::size_t nameCapacity = 256;  // a resolved name is shorter than this

/// How names are read here: what the environment and the definition file say of them.
struct FileNaming {
  const Environment* environment = nullptr;  // has the volumes; not owned
  std::string_view searchPath;               // elements separated by ":", empty: none; lies in the environment
  bool foldCase = false;                     // rebuilt names are folded to lower case
  char extensionSeparator = '.';
  FixedText<6> dataExtension;   // of a data file without one, with its "."
  FixedText<6> indexExtension;  // of an index file without one
};

/// Reads the rules from the environment, which must outlive them.
[[nodiscard]] FileNaming readFileNaming(const Environment& environment);

/// Resolves the volume of a name and a "/" that stands for the extension separator, in place. The length of the
/// resulting name; 0, and the name unchanged, when it is empty or the result would reach `nameCapacity`.
[[nodiscard]] std::size_t resolveFileName(const FileNaming& naming, FileName& name);

/// Takes a name apart: everything up to the last "/", the rest up to its last ".", and from that "." on. False when a
/// part does not fit.
[[nodiscard]] bool splitFileName(std::string_view name, FileNameParts& parts);

/// Puts the parts together, folded to lower case where names are. False when they do not fit.
[[nodiscard]] bool buildFileName(const FileNaming& naming, FileName& name, const FileNameParts& parts);

/// Looks for a name without directory in the current directory, then along the search path. Found on the path: the
/// element and a "/" become the directory. The length of the directory written, or 0.
std::size_t searchFilePath(const FileNaming& naming, std::string_view name, FileName& directory);

/// Builds the name of the parts into `name`, after looking for it along the search path when there is one and the parts
/// have no directory. False when a name does not fit.
[[nodiscard]] bool findAndBuildFileName(const FileNaming& naming, FileName& name, FileNameParts& parts);

/// Resolves the name of a file to be read, gives it the extension that it lacks, and finds it. False, with `name` as
/// far as it was resolved, when it cannot be resolved or does not fit.
[[nodiscard]] bool findInputName(const FileNaming& naming, std::string_view extension, FileName& name,
                                 FileNameParts& parts);

}  // namespace tarnvale
