// The duplicate keys of a run: reported, and listed in the error file.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "cmdline/settings.h"
#include "common/file_blocks.h"
#include "common/messages.h"
#include "common/tracked_files.h"

namespace tarnvale {

/// Lines of the error file are collected here. What is not written yet is known to TrackedFiles, so that an interrupt
/// writes it.
struct DuplicateList {
  std::array<char, 262144> lines;
  FileBlocks blocks;             // of the error file
  bool incomplete = false;       // a line could not be written, and this was reported
  std::uint32_t duplicates = 0;  // entries in the index whose key equals the one before
  std::uint32_t dropped = 0;     // such entries that were left out

  [[nodiscard]] bool any() const { return duplicates != 0 || dropped != 0; }
};

/// Reports an entry whose key equals the one before, where a report is wanted: in the error file, and among the
/// messages when duplicates are not allowed. Every key byte is written as it is.
void reportDuplicate(DuplicateList& list, TrackedFile& file, Messages& messages, const Settings& settings,
                     const std::uint8_t* entry, std::uint32_t keyLength);

/// Adds a line to the error file, if it is open, and CR LF.
void putErrorFileLine(DuplicateList& list, TrackedFile& file, Messages& messages, std::string_view line);

/// Writes the collected lines and closes the error file. What fails is reported once.
void closeErrorFile(DuplicateList& list, TrackedFile& file, Messages& messages);

}  // namespace tarnvale
