// Records that the command line fills and the scan, the merge and the index header use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/byte_order.h"

namespace tarnvale {

/// One key specification as written on the command line; copied unchanged into the index header.
struct KeySpec {
  Le16 start;   // 0  first column named, counted from 0
  Le16 length;  // 2  last column minus first column plus 1 as a 16-bit value: negative for a high-to-low range
};
static_assert(sizeof(KeySpec) == 4);

inline constexpr std::size_t maxKeySpecs = 32;

/// What a column of the record is good for; the bits of ColumnEntry::flags and of PrimaryCondition::operatorBits.
namespace column_flag {
inline constexpr std::uint16_t term = 0x04;       // carries a term of a selection expression
inline constexpr std::uint16_t key = 0x08;        // supplies a key byte
inline constexpr std::uint16_t notEqual = 0x10;   // a condition: must differ
inline constexpr std::uint16_t equal = 0x20;      // a condition: must be equal
inline constexpr std::uint16_t upperCase = 0x40;  // the key byte is folded to upper case
inline constexpr std::uint16_t condition = equal | notEqual;
}  // namespace column_flag

/// One record column that has a role in the run. The table of them is sorted by column and ends with an entry whose
/// keyPosition is `endOfTable`; a column occurs at most once.
struct ColumnEntry {
  static constexpr std::uint16_t endOfTable = 0xFFFF;

  std::uint16_t column;       // counted from 0
  std::uint16_t keyPosition;  // for a key byte: its place in the key, counted from 0
  std::uint16_t flags;        // column_flag bits
  std::uint8_t matchChar;     // character of a simple condition, else 0
};

inline constexpr std::size_t maxColumnEntries = 150;

/// One `p` option as the index header keeps it.
struct PrimaryCondition {
  Le16 position;              // 0  column counted from 1; for an expression its highest column
  std::uint8_t operatorBits;  // 2  column_flag::equal or notEqual, both when two conditions share the column
  std::uint8_t character;     // 3
};
static_assert(sizeof(PrimaryCondition) == 4);

inline constexpr std::size_t maxPrimaryOptions = 10;

/// One comparison of a selection expression.
struct SelectionTerm {
  enum class Kind : std::uint8_t { unused, first, andTerm, orTerm, end };
  enum class Operator : std::uint8_t { none, less, greater, equal, notEqual, lessOrEqual, greaterOrEqual };
  enum class Result : std::uint8_t { unknown, no, yes };  // unknown counts as no

  Kind kind;
  Operator comparison;
  Result result;          // for the record being scanned
  std::uint16_t column;   // counted from 0
  std::string_view text;  // lies in RunContext::selectionText
};

inline constexpr std::size_t maxSelectionTerms = 24;
inline constexpr std::size_t maxTermLength = 299;  // characters of one compared string

}  // namespace tarnvale
