// What a check finds: the first differences are reported, all are counted.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace tarnvale {

/// The entry that a difference is about.
struct EntryPlace {
  std::span<const std::uint8_t> key;
  std::uint64_t lfa;
  std::uint64_t node;  // it begins at this multiple of 512 in the index file
};

class Report {
 public:
  /// Differences go to `output`; null: they are counted only.
  explicit Report(std::FILE* output) : output_(output) {}

  [[gnu::format(printf, 2, 3)]] void add(const char* pattern, ...);
  /// As add, with the key, LFA and node of the entry in front.
  [[gnu::format(printf, 3, 4)]] void addAt(const EntryPlace& place, const char* pattern, ...);
  /// Says how many differences were not reported.
  void close() const;
  [[nodiscard]] std::uint64_t count() const { return count_; }

 private:
  static constexpr std::uint64_t reportedDifferences = 10;

  std::FILE* output_;
  std::uint64_t count_ = 0;
};

/// The bytes with all but printable ASCII characters as \xHH, and a backslash as two.
[[nodiscard]] std::string escapedText(std::span<const std::uint8_t> bytes);

/// The number and the noun, which takes an s (an entry: entries) unless there is one.
[[nodiscard]] std::string counted(std::uint64_t number, const std::string& noun);

}  // namespace tarnvale
