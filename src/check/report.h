// What a check finds: the first differences are shown, all are counted.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "check/progress_line.h"

namespace tarnvale {

/// The entry that a difference is about.
struct EntryPlace {
  std::span<const std::uint8_t> key;
  std::uint64_t lfa;
  std::uint64_t node;  // it begins at this multiple of 512 in the index file
};

class Report {
 public:
  /// Differences go to `output`, what else is said to `notes`; null: nothing is said. The progress line makes way.
  Report(std::FILE* output, std::FILE* notes, ProgressLine& progress)
      : output_(output), notes_(notes), progress_(progress) {}

  [[gnu::format(printf, 2, 3)]] void add(const char* pattern, ...);
  /// As add, with the key, LFA and node of the entry in front.
  [[gnu::format(printf, 3, 4)]] void addAt(const EntryPlace& place, const char* pattern, ...);
  /// Something worth knowing that is no difference.
  void note(std::string_view text);
  /// Says why the check cannot go on.
  void fail(std::string_view text);
  /// Says how many differences were not shown, and the result; `right` is the line for no difference.
  void close(const std::string& right);

  [[nodiscard]] std::uint64_t count() const { return count_; }
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  static constexpr std::uint64_t shownDifferences = 10;

  [[nodiscard]] bool isShown();
  void putLine(std::FILE* stream, std::string_view text);

  std::FILE* output_;
  std::FILE* notes_;
  ProgressLine& progress_;
  std::uint64_t count_ = 0;
  bool failed_ = false;
};

/// The bytes with all but printable ASCII characters as \xHH, and a backslash as two.
[[nodiscard]] std::string escapedText(std::span<const std::uint8_t> bytes);

/// The number and the noun, which takes an s (an entry: entries) unless there is one.
[[nodiscard]] std::string counted(std::uint64_t number, const std::string& noun);

}  // namespace tarnvale
