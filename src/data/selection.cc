#include "data/selection.h"

namespace tarnvale {

namespace {

using Kind = SelectionTerm::Kind;
using Operator = SelectionTerm::Operator;

// Below 0 when the record's text at `position` is less than the string, 0 when it begins with it, else above 0. An LF
// and the end of the data end the record: its text is then less.
int compareWithRecord(const RecordComparison& comparison, const std::uint8_t* position, std::uint32_t column,
                      std::string_view string) {
  std::uint32_t blanksLeft = 0;
  for (const char wanted : string) {
    std::uint8_t byte = ' ';
    if (blanksLeft > 0) {
      --blanksLeft;
    } else {
      if (position >= comparison.dataEnd || *position == '\n') return -1;
      byte = *position++;
      if (byte == '\t' && comparison.expandTabs) {
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

bool termHolds(const RecordComparison& comparison, const SelectionTerm& term, const std::uint8_t* position) {
  const int order = compareWithRecord(comparison, position, term.column, comparison.selection.textOf(term));
  return operatorHolds(term.comparison, order);
}

}  // namespace

void evaluateTermsAt(const RecordComparison& comparison, TermResults& results, const std::uint8_t* position,
                     std::uint32_t column) {
  for (std::uint32_t i = 0; i < comparison.selection.termCount; ++i) {
    const SelectionTerm& term = comparison.selection.terms[i];
    if (term.column == column) results[i] = termHolds(comparison, term, position) ? TermResult::yes : TermResult::no;
  }
}

bool evaluateExpression(const Selection& selection, TermResults& results) {
  bool expressionHolds = false;
  bool groupHolds = false;
  for (std::uint32_t i = 0; i < selection.termCount; ++i) {
    if (selection.terms[i].kind != Kind::andTerm) {  // an and-group begins: the one before is complete
      expressionHolds = expressionHolds || groupHolds;
      groupHolds = true;
    }
    groupHolds = groupHolds && results[i] == TermResult::yes;
    results[i] = TermResult::unknown;
  }
  return expressionHolds || groupHolds;
}

bool expressionHoldsFor(const RecordComparison& comparison, const std::uint8_t* record) {
  bool groupHolds = false;
  for (std::uint32_t i = 0; i < comparison.selection.termCount; ++i) {
    const SelectionTerm& term = comparison.selection.terms[i];
    if (term.kind != Kind::andTerm) {
      if (groupHolds) return true;
      groupHolds = true;
    }
    groupHolds = groupHolds && termHolds(comparison, term, record + term.column);
  }
  return groupHolds;
}

}  // namespace tarnvale
