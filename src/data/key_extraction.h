// From a record to its key: the general column walk, and the copying of ranges that most records need.
//
// The walk goes from one entry of the column table to the next, expands TABs and tests conditions. It is needed where
// an expression meets TABs or a short record. Any other key is copied range by range, out of the record or out of a
// copy with its TABs expanded; both give the same key.
#pragma once

#include <array>
#include <cstdint>

#include "cmdline/columns.h"
#include "data/selection.h"

namespace tarnvale {

/// One record of the data file, its mark left out; it lies in the input buffer in one piece.
struct RecordBytes {
  const std::uint8_t* begin;
  const std::uint8_t* end;
  [[nodiscard]] std::uint32_t size() const { return static_cast<std::uint32_t>(end - begin); }
};

/// What extractKeyByte and padKeyByte return besides a key position. A number below `keyGap` says that the next entry
/// of the table lies keyGap - result columns further on.
inline constexpr std::int32_t keyTableEnd = -1;
inline constexpr std::int32_t keyTestFailed = -2;
inline constexpr std::int32_t keyGap = -2;

/// The state of one walk over the columns of a record.
struct ColumnWalk {
  const RecordComparison& comparison;
  const ColumnEntry* next;       // entry of the column table
  std::uint32_t matchCount = 0;  // conditions that the record has met
  TermResults results{};
};

/// Looks at one column of the record: tests the conditions on it and tells where its byte goes in the key. `position`
/// is the record's byte at the column, `byte` its value (a blank inside a TAB), folded to upper case where the key is.
/// Columns must come in ascending order.
[[nodiscard]] std::int32_t extractKeyByte(ColumnWalk& walk, const std::uint8_t* position, std::uint32_t column,
                                          std::uint8_t& byte);

/// The next key position that the record did not reach: to be filled with a blank. Conditions on the way are tested
/// with the blank. keyTableEnd when there is none left or a test failed.
[[nodiscard]] std::int32_t padKeyByte(ColumnWalk& walk, const std::uint8_t* position, std::uint32_t column,
                                      std::uint8_t byte);

/// The general column walk: fills the key. The number of conditions that the record meets; 0 when it fails one.
std::uint32_t walkColumns(const KeyColumns& keys, const RecordComparison& comparison, const RecordBytes& record,
                          std::uint8_t* key);

/// Columns of the record with its TABs expanded, or of one that has `before` columns in front of these bytes.
[[nodiscard]] std::uint32_t expandedColumns(const RecordBytes& record, std::uint32_t before = 0);

/// The key as ranges to copy and simple conditions to test; made once per run.
struct KeyPlan {
  struct Range {
    std::uint32_t column;  // of the first key byte
    std::uint32_t keyPosition;
    std::uint32_t length;
    bool reversed;  // columns go down
  };
  std::array<Range, maxKeySpecs> ranges{};
  std::uint32_t rangeCount = 0;
  std::array<ColumnEntry, maxPrimaryOptions> conditions{};
  std::uint32_t conditionCount = 0;
  std::uint32_t keyLength = 0;
  bool upperCase = false;
  bool hasExpression = false;       // which only the walk evaluates on a record with TABs or without all its columns
  bool walkOnly = false;            // it is evaluated at several columns, with the terms compared up to each
  std::uint32_t columnsNeeded = 0;  // up to the last column with a role in the run
};

[[nodiscard]] KeyPlan makeKeyPlan(const KeyColumns& keys);

inline constexpr std::size_t expandedSize = 65600;  // bytes for as many columns as a plan can need, and a few more

/// The record's first columns, as many as the plan needs, with TABs expanded into `expanded` (expandedSize bytes).
[[nodiscard]] RecordBytes expandTabs(const KeyPlan& plan, const RecordBytes& record, std::uint8_t* expanded);

/// Copies bytes of a key with a-z folded to A-Z; both places may be the same.
void copyFolded(std::uint8_t* to, const std::uint8_t* from, std::size_t length);

/// True when the record meets all conditions of the run. The record has no TABs to expand, and the plan does not need
/// the walk; where it has an expression, the record must lie in the input buffer and have all the columns that are
/// needed.
[[nodiscard]] bool meetsConditions(const KeyPlan& plan, const RecordComparison& comparison, const RecordBytes& record);

/// The key that walkColumns makes, of a record as meetsConditions takes it.
void copyKeyRanges(const KeyPlan& plan, const RecordBytes& record, std::uint8_t* key);

}  // namespace tarnvale
