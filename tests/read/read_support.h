// Running tarnvale-read, and what it has to write.
#pragma once

#include <unistd.h>

#include <algorithm>

#include "support/index_file.h"
#include "support/program_run.h"

namespace tarnvale {

using Entries = std::vector<IndexEntry>;

/// Output and messages of the program come together.
inline ProgramResult readWith(const TestFolder& folder, const std::string& arguments) {
  const auto joinMessages = [] { ::dup2(STDOUT_FILENO, STDERR_FILENO); };
  return runProgram(folder, arguments, joinMessages, TARNVALE_READ_PROGRAM);
}

/// A key as the program writes it; as an argument its blanks are written as numbers too.
inline std::string escaped(const std::string& key, bool asArgument = false) {
  std::string text;
  char number[5];
  for (const char c : key) {
    const bool printable = c > ' ' ? c <= '~' : c == ' ' && !asArgument;
    std::snprintf(number, sizeof number, "\\x%02X", static_cast<unsigned char>(c));
    text += c == '\\' ? "\\\\" : printable ? std::string(1, c) : number;
  }
  return text;
}

inline std::uint64_t lfaOf(const IndexEntry& entry, bool recordNumbers) {
  return recordNumbers ? std::uint64_t{entry.position} * entry.recordLength : entry.position;
}

inline std::string asLines(const Entries& entries, bool recordNumbers) {
  std::string lines;
  for (const IndexEntry& entry : entries) {
    lines += std::to_string(entry.position) + "\t" + std::to_string(lfaOf(entry, recordNumbers)) + "\t" +
             std::to_string(entry.recordLength) + "\t" + std::to_string(entry.duplicateNumber) + "\t" +
             escaped(entry.key) + "\n";
  }
  return lines;
}

/// Those from the first key that begins with `from` or comes later to the last one that begins with `to`.
inline Entries inRange(Entries entries, const std::string& from, const std::string& to) {
  std::erase_if(entries, [&](const IndexEntry& entry) {
    return entry.key.compare(0, from.size(), from) < 0 || entry.key.compare(0, to.size(), to) > 0;
  });
  return entries;
}

}  // namespace tarnvale
