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

// For which orders each operator holds, by its number: 1 below, 2 equal, 4 above.
constexpr std::array<std::uint8_t, 7> ordersOf = {0, 1, 4, 2, 5, 3, 6};

bool operatorHolds(Operator comparison, int order) {
  const unsigned bit = order < 0 ? 1 : order == 0 ? 2 : 4;
  return (ordersOf[static_cast<std::size_t>(comparison)] & bit) != 0;
}

bool termHolds(const RecordComparison& comparison, const SelectionTerm& term, const std::uint8_t* position) {
  const int order = compareWithRecord(comparison, position, term.column, comparison.selection.textOf(term));
  return operatorHolds(term.comparison, order);
}

// termHolds where the data go on at `position`: the first byte decides most comparisons. A TAB and an LF are left to
// the general one.
bool termHoldsAt(const RecordComparison& comparison, const SelectionTerm& term, const std::uint8_t* position) {
  const int difference = *position - static_cast<std::uint8_t>(comparison.selection.text.c_str()[term.textStart]);
  const bool goesOn = difference == 0 && term.textLength != 1;
  if (goesOn || *position <= '\n') return termHolds(comparison, term, position);
  return operatorHolds(term.comparison, difference);
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
  const SelectionTerm* const end = comparison.selection.terms.data() + comparison.selection.termCount;
  bool groupHolds = false;
  for (const SelectionTerm* term = comparison.selection.terms.data(); term != end; ++term) {
    if (term->kind != Kind::andTerm) {
      if (groupHolds) return true;
    } else if (!groupHolds) {
      continue;
    }
    groupHolds = termHoldsAt(comparison, *term, record + term->column);
  }
  return groupHolds;
}

}  // namespace tarnvale
