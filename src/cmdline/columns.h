// The columns that have a role in a run: key bytes, conditions, terms of a selection.
//
// The key of a record is the bytes of all key specifications in the order given; a range written high-to-low gives its
// bytes in reverse order. The column table holds one entry per column with a role.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/fixed_text.h"
#include "common/limits.h"
#include "format/isi_format.h"

namespace tarnvale {

inline constexpr std::size_t maxCommandLine = 576;  // characters of the joined command line

/// What a column of the record is good for; the bits of ColumnEntry::flags.
namespace column_flag {
inline constexpr std::uint16_t term = 0x04;  // carries a term of a selection expression
inline constexpr std::uint16_t key = 0x08;   // supplies a key byte
inline constexpr std::uint16_t notEqual = condition_flag::notEqual;
inline constexpr std::uint16_t equal = condition_flag::equal;
inline constexpr std::uint16_t upperCase = 0x40;  // the key byte is folded to upper case
inline constexpr std::uint16_t condition = equal | notEqual;
}  // namespace column_flag

/// One record column that has a role in the run.
struct ColumnEntry {
  static constexpr std::uint16_t endOfTable = 0xFFFF;

  std::uint16_t column;       // counted from 0
  std::uint16_t keyPosition;  // for a key byte: its place in the key, counted from 0
  std::uint16_t flags;        // column_flag bits
  std::uint8_t matchChar;     // character of a simple condition, else 0
};

inline constexpr std::size_t maxColumnEntries = 150;

/// The key specifications and the column table.
struct KeyColumns {
  std::array<KeySpec, maxKeySpecs> specs{};  // in the order given
  std::uint32_t specCount = 0;
  // Sorted by column once the options are complete, and then ended by an entry whose keyPosition is `endOfTable`; a
  // column occurs at most once. Room for one entry too many and the closing one.
  std::array<ColumnEntry, maxColumnEntries + 2> table{};
  std::uint32_t entryCount = 0;
  std::uint32_t keyLength = 0;  // key bytes in the table
  bool upperCase = false;       // key bytes are folded to upper case
};

/// One comparison of a selection expression.
struct SelectionTerm {
  enum class Kind : std::uint8_t { first, andTerm, orTerm };
  enum class Operator : std::uint8_t { none, less, greater, equal, notEqual, lessOrEqual, greaterOrEqual };

  Kind kind;
  Operator comparison;
  std::uint16_t column;     // counted from 0
  std::uint16_t textStart;  // of the string in Selection::text
  std::uint16_t textLength;
};

inline constexpr std::size_t maxSelectionTerms = 24;

/// The `p` options: simple conditions stand in the column table, an expression here.
struct Selection {
  char mode = 0;                  // the last p option: 0 none, 'p' simple, 'P' expression
  std::uint32_t optionCount = 0;  // conditions that a record has to meet
  std::array<PrimaryCondition, maxPrimaryOptions> conditions{};  // ascending by position, for the index header
  std::uint32_t conditionCount = 0;
  std::array<SelectionTerm, maxSelectionTerms> terms{};
  std::uint32_t termCount = 0;
  FixedText<maxCommandLine + 1> text;  // the strings of the terms

  [[nodiscard]] std::string_view textOf(const SelectionTerm& term) const {
    return text.view().substr(term.textStart, term.textLength);
  }
};

}  // namespace tarnvale
