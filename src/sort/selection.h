// The selection of primary records: expressions evaluated on the record being scanned.
#pragma once

#include <cstdint>

#include "common/run_context.h"

namespace tarnvale {

/// Makes the result of every term unknown: a new record begins.
void forgetTermResults(RunContext& run);

/// Compares every term of the column with the record, which goes on at `position`, and stores the results.
void evaluateTermsAt(RunContext& run, const std::uint8_t* position, std::uint32_t column);

/// Whether the expression holds with the results stored; they are reset to unknown.
[[nodiscard]] bool evaluateExpression(RunContext& run);

/// Whether the expression holds for a record without TABs to expand that reaches all its columns. Compares no more
/// terms than it has to, and keeps no results.
[[nodiscard]] bool expressionHoldsFor(const RunContext& run, const std::uint8_t* record);

/// Whether the condition of a table entry holds. `byte` is the record's byte at the entry's column; for an expression
/// the terms of `column` are compared with the record at `position` first.
[[nodiscard]] bool conditionHolds(RunContext& run, const ColumnEntry& entry, const std::uint8_t* position,
                                  std::uint32_t column, std::uint8_t byte);

}  // namespace tarnvale
