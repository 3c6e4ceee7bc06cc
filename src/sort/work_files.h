// The two temporary work files of the sort: made, emptied and read.
//
// A work file is a plain sequence of sort entries: sorted trains, one after the other. An end marker follows each train
// that another one follows, and at least one ends the file. A table tells where each train begins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/messages.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// Creates both work files in `directory` and opens them; in debug mode they are kept at the end. False when one
/// cannot be created or its name does not fit. An empty directory stands for `standardDirectory`, where a "/" at its
/// end does not count.
[[nodiscard]] bool createWorkFiles(TrackedFiles& files, Messages& messages, std::string_view directory,
                                   std::string_view standardDirectory);

/// Closes and deletes a work file that has been read and, when `createAgain`, makes it anew and empty.
void recycleWorkFile(TrackedFile& file, bool createAgain);

/// Which block of a train is read; names the diagnostics of a short read.
enum class TrainBlock : std::uint8_t { first, further };

/// Reads one block of a work file to `block`, and with it the `before` bytes in front of it in the file, which land in
/// front of `block`. At the end of the file the block may be short. False when it cannot be read.
[[nodiscard]] bool readTrainBlock(int fd, std::uint8_t* block, std::size_t size, std::uint64_t offset,
                                  std::size_t before, TrainBlock which, Messages& messages);

}  // namespace tarnvale
