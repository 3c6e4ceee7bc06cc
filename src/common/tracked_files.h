// The files of a run: descriptor, name, and what is to become of each.
//
// This is all that clean-up and the interrupt handler look at. Whoever makes a file records it here while interrupts
// are held, and whoever closes or deletes one forgets it in the same way; so at any instruction the record is true.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "common/file_name.h"

namespace tarnvale {

/// What a file is to the run. A failure names its file by this.
enum class FileRole : std::uint8_t {
  input,      // the data file; in a compaction the index to be compacted
  index,      // the index being written; a compaction in place writes `input` and keeps this one closed
  errorFile,  // the list of duplicate keys
  workFile1,
  workFile2,
  backup,  // of an index compacted in place
};
inline constexpr std::size_t fileRoles = 6;

/// What becomes of a file that is open when the run cleans up.
enum class AtEnd : std::uint8_t {
  keep,
  removeAfterFailure,
  discardAfterFailure,  // emptied, then removed: the name may be one of several, or a link
  removeAlways,
};

/// Lines that are not yet written, of the first one perhaps only the rest; an interrupt still writes them. The bytes
/// belong to who collects them.
struct CollectedLines {
  const char* bytes = nullptr;
  std::size_t size = 0;
};

/// Collects a line in `buffer`, whose bytes the lines are, behind what is there: `compose` writes it to the place that
/// it is given and returns its size, at most `room`. False, and nothing is written, when that many bytes do not fit.
/// There may be one for every record.
template <typename Compose>
[[nodiscard]] [[gnu::always_inline]] inline bool collectComposed(CollectedLines& lines, std::span<char> buffer,
                                                                 std::size_t room, const Compose& compose) {
  if (room > buffer.size() - lines.size) return false;
  const std::size_t size = compose(buffer.data() + lines.size);
  lines.bytes = buffer.data();
  std::atomic_signal_fence(std::memory_order_release);  // the interrupt handler counts on whole lines
  lines.size += size;
  return true;
}

/// The same for a line that is composed already, and its `end`.
[[nodiscard]] inline bool collectLine(CollectedLines& lines, std::span<char> buffer, std::string_view line,
                                      std::string_view end) {
  return collectComposed(lines, buffer, line.size() + end.size(), [&](char* to) {
    std::ranges::copy(end, std::ranges::copy(line, to).out);
    return line.size() + end.size();
  });
}

struct TrackedFile {
  int fd = -1;  // -1: closed
  AtEnd atEnd = AtEnd::keep;
  FileName name;
  CollectedLines collected;

  [[nodiscard]] bool isOpen() const { return fd >= 0; }
};

struct TrackedFiles {
  std::array<TrackedFile, fileRoles> files;
  int messageFd = -1;  // takes the messages; the interrupt handler writes its own there
  CollectedLines messages;

  TrackedFile& operator[](FileRole role) { return files[static_cast<std::size_t>(role)]; }
  const TrackedFile& operator[](FileRole role) const { return files[static_cast<std::size_t>(role)]; }
};

enum class RunEnd : std::uint8_t { success, failure };

/// Opens the file of the name, with the access O_RDONLY or O_RDWR. Only a regular file will do; a pipe of that name
/// does not stop the run. Holds interrupts.
[[nodiscard]] bool openRegular(TrackedFile& file, int access);

/// Writes the collected lines and forgets them. False when not all could be written. Async-signal-safe; interrupts must
/// be held.
[[nodiscard]] bool writeLines(TrackedFile& file);

/// Writes the collected lines and closes the file. False when either failed; nothing to do for a closed one.
/// Async-signal-safe; interrupts must be held.
bool closeTracked(TrackedFile& file);

/// Closes the file and does with it what `atEnd` says. Async-signal-safe; interrupts must be held.
void releaseFile(TrackedFile& file, RunEnd end);

/// releaseFile for every file, in the order of the roles, the backup excepted: it stays as it is. Async-signal-safe;
/// interrupts must be held.
void releaseAllFiles(TrackedFiles& files, RunEnd end);

/// Empties, closes and removes the file, if it is open. Holds interrupts.
void discardFile(TrackedFile& file);

}  // namespace tarnvale
