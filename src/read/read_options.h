// What the user asked of tarnvale-read.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace tarnvale {

namespace read_status {           // the exit status
inline constexpr int found = 0;   // and written
inline constexpr int none = 1;    // nothing was found
inline constexpr int failed = 2;  // the index, its data file or the arguments; or it could not be written
}  // namespace read_status

struct ReadOptions {
  enum class Ask : std::uint8_t { entries, header, help, version };

  static constexpr std::uint64_t noLimit = std::numeric_limits<std::uint64_t>::max();

  Ask ask = Ask::entries;
  const char* indexName = nullptr;
  // The ends of the range, both included; nothing: open. A key is compared in as many bytes as the end has.
  std::optional<std::string> from;
  std::optional<std::string> to;
  bool wholeKey = false;  // the ends are filled up with blanks to the key length first
  bool backwards = false;
  bool records = false;  // instead of lines about them
  bool json = false;
  std::uint64_t limit = noLimit;  // entries at most
};

/// Reads the arguments. False when they are at fault, which a message on the standard error tells.
[[nodiscard]] bool parseReadOptions(int argc, char** argv, ReadOptions& options);

/// The text of --help.
[[nodiscard]] std::string readHelp();

}  // namespace tarnvale
