// Numbers that several floors agree on.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace tarnvale {

inline constexpr std::uint32_t maxRecordSize = 65535;  // bytes, with the end-of-record mark; less its length once more
inline constexpr std::uint32_t smallestRecordLimit = 256;  // columns, where the first record of a file sets the limit
inline constexpr std::uint32_t beyondAnyRecord = 1000000;  // what a length too large to be one saturates at
inline constexpr std::uint32_t tabWidth = 8;               // a TAB stands for blanks up to the next multiple of this
inline constexpr std::uint8_t ctrlZ = 0x1A;                // ends the data of a text file
inline constexpr std::size_t maxKeyLength = 150;           // bytes
inline constexpr std::size_t maxTermLength = 299;          // characters of one string that a selection compares with
inline constexpr int maxShortReads = 3;                    // of a block in a row; the fourth one fails
inline constexpr std::uint32_t progressStep = 1000;        // entries between two looks at the clock
inline constexpr mode_t everyoneReadsAndWrites = 0666;     // of a new file, less the process's file-creation mask

}  // namespace tarnvale
