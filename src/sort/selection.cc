#include "sort/selection.h"

namespace tarnvale {

namespace {

using Kind = SelectionTerm::Kind;
using Operator = SelectionTerm::Operator;
using Result = SelectionTerm::Result;

constexpr std::uint32_t tabWidth = 8;

// Below 0 when the record's text at `position` is less than the string, 0 when it begins with it, else above 0. An LF
// and the end of the data end the record: its text is then less. A TAB stands for blanks where TABs are expanded.
int compareWithRecord(const RunContext& run, const std::uint8_t* position, std::uint32_t column,
                      std::string_view string) {
  const bool expandTabs = run.tabExpansion && !run.binaryRecords;
  std::uint32_t blanksLeft = 0;
  for (const char wanted : string) {
    std::uint8_t byte = ' ';
    if (blanksLeft > 0) {
      --blanksLeft;
    } else {
      if (position >= run.readAheadEnd || *position == '\n') return -1;
      byte = *position++;
      if (byte == '\t' && expandTabs) {
        byte = ' ';
        blanksLeft = tabWidth - column % tabWidth - 1;
      }
    }
    ++column;
    const int difference = byte - static_cast<std::uint8_t>(wanted);
    if (difference != 0) return difference;
  }
  return 0;
}

bool operatorHolds(Operator comparison, int order) {
  switch (comparison) {
    case Operator::less:
      return order < 0;
    case Operator::greater:
      return order > 0;
    case Operator::equal:
      return order == 0;
    case Operator::notEqual:
      return order != 0;
    case Operator::lessOrEqual:
      return order <= 0;
    case Operator::greaterOrEqual:
      return order >= 0;
    case Operator::none:
      break;
  }
  return false;
}

}  // namespace

void forgetTermResults(RunContext& run) {
  for (std::uint32_t i = 0; i < run.selectionTermCount; ++i) run.selectionTable[i].result = Result::unknown;
}

void evaluateTermsAt(RunContext& run, const std::uint8_t* position, std::uint32_t column) {
  for (std::uint32_t i = 0; i < run.selectionTermCount; ++i) {
    SelectionTerm& term = run.selectionTable[i];
    if (term.column != column) continue;
    const bool holds = operatorHolds(term.comparison, compareWithRecord(run, position, column, term.text));
    term.result = holds ? Result::yes : Result::no;
  }
}

bool evaluateExpression(RunContext& run) {
  bool expressionHolds = false;
  bool groupHolds = false;
  for (std::uint32_t i = 0; i < run.selectionTermCount; ++i) {
    SelectionTerm& term = run.selectionTable[i];
    if (term.kind != Kind::andTerm) {  // an and-group begins: the one before is complete
      expressionHolds = expressionHolds || groupHolds;
      groupHolds = true;
    }
    groupHolds = groupHolds && term.result == Result::yes;
    term.result = Result::unknown;
  }
  return expressionHolds || groupHolds;
}

bool expressionHoldsFor(const RunContext& run, const std::uint8_t* record) {
  bool groupHolds = false;
  for (std::uint32_t i = 0; i < run.selectionTermCount; ++i) {
    const SelectionTerm& term = run.selectionTable[i];
    if (term.kind != Kind::andTerm) {
      if (groupHolds) return true;
      groupHolds = true;
    }
    if (!groupHolds) continue;
    const int order = compareWithRecord(run, record + term.column, term.column, term.text);
    groupHolds = operatorHolds(term.comparison, order);
  }
  return groupHolds;
}

bool conditionHolds(RunContext& run, const ColumnEntry& entry, const std::uint8_t* position, std::uint32_t column,
                    std::uint8_t byte) {
  const bool wantsEqual = (entry.flags & column_flag::equal) != 0;
  if ((entry.flags & column_flag::term) == 0) return (byte == entry.matchChar) == wantsEqual;
  evaluateTermsAt(run, position, column);
  return evaluateExpression(run) == wantsEqual;
}

}  // namespace tarnvale
