// What a job says about its data: where records end, which columns are the key, which records count. The roof and the
// check of results read it from the same words. The check has none of its code from tarnvale, the roof the search for
// marks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

inline constexpr std::uint32_t maxKeyLength = 150;

using Bytes = std::span<const std::uint8_t>;

// Columns counted from 0. A range whose first column is the higher one is taken backwards.
struct KeyRange {
  std::uint32_t first = 0;
  std::uint32_t last = 0;
};

// The record's bytes from a column on, compared with a text: '<', '>' or '='.
struct Term {
  std::uint32_t column = 0;
  char operation = '=';
  std::string text;
};

struct RecordFormat {
  std::vector<KeyRange> key;
  std::uint32_t keyLength = 0;
  std::uint32_t keyColumns = 0;           // of a record, up to the last one of the key
  std::string_view mark = "\n";           // "\r\n", or empty
  std::uint32_t recordSize = 0;           // bytes with the mark; 0: a record ends at the mark
  bool expandTabs = false;                // a TAB stands for blanks up to the next multiple of 8 columns
  bool upperCase = false;                 // key bytes are folded
  bool firstOfEqualKeys = false;          // only the first record of a key counts
  bool byNumber = true;                   // positions and pointers are numbers, not byte offsets
  std::vector<std::vector<Term>> select;  // a record counts when all terms of one group hold; empty: all records
};

/// Reads words such as key=1-10,40-31 eor=crlf size=100 tabs upper first offsets select=11='A'&1>'M'|12='7'.
/// Ends the helper at a word it does not know.
[[nodiscard]] RecordFormat readFormat(std::span<char* const> words);

[[nodiscard]] bool isSelected(const RecordFormat& format, Bytes record);

[[nodiscard]] inline std::uint8_t toUpper(std::uint8_t byte) {
  return static_cast<std::uint8_t>(byte - (static_cast<std::uint8_t>(byte - 'a') < 26 ? 'a' - 'A' : 0));
}

/// Puts the key of a record, given without its mark, to `key`: blanks where the record ends before the column.
void extractKey(const RecordFormat& format, Bytes record, std::uint8_t* key);

/// The mark in [from, end), or null. For a format whose records end at the mark.
[[nodiscard]] inline const std::uint8_t* findMark(const RecordFormat& format, const std::uint8_t* from,
                                                  const std::uint8_t* end) {
  for (;; ++from) {
    from = static_cast<const std::uint8_t*>(std::memchr(from, format.mark[0], static_cast<std::size_t>(end - from)));
    if (from == nullptr || format.mark.size() == 1) return from;
    if (from + 1 < end && from[1] == static_cast<std::uint8_t>(format.mark[1])) return from;
  }
}

/// Takes the record at the front of `data`, mark included. Empty when it has no end there.
[[nodiscard]] inline Bytes takeRecord(const RecordFormat& format, Bytes& data) {
  std::size_t size = format.recordSize;
  if (size == 0) {
    const std::uint8_t* const mark = findMark(format, data.data(), data.data() + data.size());
    if (mark == nullptr) return {};
    size = static_cast<std::size_t>(mark - data.data()) + format.mark.size();
  }
  if (size > data.size()) return {};
  const Bytes record = data.first(size);
  data = data.subspan(size);
  return record;
}

}  // namespace bench
