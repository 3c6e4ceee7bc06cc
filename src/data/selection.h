// The selection of primary records: expressions evaluated on the record being scanned.
#pragma once

#include <array>
#include <cstdint>

#include "cmdline/columns.h"

namespace tarnvale {

/// How the strings of an expression are compared with a record.
struct RecordComparison {
  const Selection& selection;
  const std::uint8_t* dataEnd = nullptr;  // behind the last byte of the file in memory: the record may go on there
  bool expandTabs = false;                // a TAB stands for blanks
};

/// What is known of each term for the record being scanned.
enum class TermResult : std::uint8_t { unknown, no, yes };  // unknown counts as no
using TermResults = std::array<TermResult, maxSelectionTerms>;

/// Compares every term of the column with the record, which goes on at `position`, and stores the results.
void evaluateTermsAt(const RecordComparison& comparison, TermResults& results, const std::uint8_t* position,
                     std::uint32_t column);

/// Whether the expression holds with the results stored; they are reset to unknown.
[[nodiscard]] bool evaluateExpression(const Selection& selection, TermResults& results);

/// Whether the expression holds for a record without TABs to expand that reaches all its columns. Compares no more
/// terms than it has to.
[[nodiscard]] bool expressionHoldsFor(const RecordComparison& comparison, const std::uint8_t* record);

}  // namespace tarnvale
