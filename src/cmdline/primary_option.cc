#include "cmdline/primary_option.h"

#include <algorithm>
#include <span>

#include "cmdline/key_specification.h"
#include "common/character_case.h"

namespace tarnvale {

namespace {

constexpr std::uint32_t maxConditionColumn = 65535;
constexpr std::uint32_t maxTermColumn = 32767;

using Operator = SelectionTerm::Operator;
using Kind = SelectionTerm::Kind;

struct OperatorSpelling {
  std::string_view text;  // letters in upper case
  Operator comparison;
};
// A longer spelling stands before the shorter one that it begins with.
constexpr OperatorSpelling operatorSpellings[] = {
    {"<>", Operator::notEqual},
    {"<=", Operator::lessOrEqual},
    {"LE", Operator::lessOrEqual},
    {">=", Operator::greaterOrEqual},
    {"GE", Operator::greaterOrEqual},
    {"!=", Operator::notEqual},
    {"<", Operator::less},
    {"L", Operator::less},
    {">", Operator::greater},
    {"G", Operator::greater},
    {"=", Operator::equal},
    {"E", Operator::equal},
    {"#", Operator::notEqual},
    {"N", Operator::notEqual},
};

// The column's entry, with room for the entries of other columns left. Null when the table is full.
ColumnEntry* conditionColumn(KeyColumns& keys, std::uint32_t column) {
  const std::uint32_t before = keys.entryCount;
  ColumnEntry& entry = findOrAddColumn(keys, static_cast<std::uint16_t>(column));
  const bool full = keys.entryCount > before && keys.entryCount >= maxColumnEntries;
  return full ? nullptr : &entry;
}

// Enters a condition behind those of the same or a lower position.
void insertCondition(Selection& selection, std::uint32_t position, const ColumnEntry& entry) {
  PrimaryCondition condition{};
  condition.position = static_cast<std::uint16_t>(position);
  condition.operatorBits = static_cast<std::uint8_t>(entry.flags & column_flag::condition);
  condition.character = entry.matchChar;
  auto* const end = selection.conditions.begin() + selection.conditionCount;
  auto* const place = std::find_if(selection.conditions.begin(), end,
                                   [&](const PrimaryCondition& other) { return other.position > condition.position; });
  std::copy_backward(place, end, end + 1);
  *place = condition;
  ++selection.conditionCount;
}

bool setOperatorFlag(ColumnEntry& entry, char operatorChar) {
  if (operatorChar != '=' && operatorChar != '#') return false;
  entry.flags |= operatorChar == '=' ? column_flag::equal : column_flag::notEqual;
  return true;
}

bool parseSimpleForm(KeyColumns& keys, Selection& selection, OptionText& text) {
  selection.mode = 'p';
  if (selection.optionCount >= maxPrimaryOptions) return false;
  const std::uint32_t position = text.takeNumber(maxConditionColumn);
  if (position > maxConditionColumn) return false;
  ColumnEntry* const entry = conditionColumn(keys, position - 1);
  if (entry == nullptr || !setOperatorFlag(*entry, text.take())) return false;
  const bool quoted = text.peek() == '"' && text.peek(1) != '\0' && text.peek(2) == '"';
  if (quoted) text.take();
  entry->matchChar = static_cast<std::uint8_t>(text.take());
  if (quoted) text.take();
  insertCondition(selection, position, *entry);
  return true;
}

Operator takeOperator(OptionText& text) {
  for (const OperatorSpelling& spelling : operatorSpellings) {
    bool matches = true;
    for (std::size_t i = 0; i < spelling.text.size(); ++i) {
      matches = matches && upperCaseChar(text.peek(i)) == spelling.text[i];
    }
    if (!matches) continue;
    text.position += spelling.text.size();
    return spelling.comparison;
  }
  return Operator::none;
}

// A string in single quotes, in which two stand for one, into the store of strings. False for one that is not closed,
// empty or too long.
bool takeString(Selection& selection, OptionText& text, SelectionTerm& term) {
  if (text.take() != '\'') return false;
  const std::size_t start = selection.text.size();
  for (;;) {
    if (text.atEnd()) return false;
    const char c = text.take();
    if (c == '\'') {
      if (text.peek() != '\'') break;
      text.take();
    }
    if (!selection.text.append({&c, 1})) return false;
  }
  term.textStart = static_cast<std::uint16_t>(start);
  term.textLength = static_cast<std::uint16_t>(selection.text.size() - start);
  return term.textLength > 0 && term.textLength <= maxTermLength;
}

bool takeTerm(KeyColumns& keys, Selection& selection, OptionText& text, Kind kind) {
  if (selection.termCount == maxSelectionTerms) return false;
  SelectionTerm term{};
  term.kind = kind;
  text.skipBlanks();
  const std::uint32_t column = text.takeNumber(maxTermColumn);
  if (column == 0 || column > maxTermColumn) return false;
  term.column = static_cast<std::uint16_t>(column - 1);
  text.skipBlanks();
  term.comparison = takeOperator(text);
  if (term.comparison == Operator::none) return false;
  text.skipBlanks();
  if (!takeString(selection, text, term)) return false;
  ColumnEntry* const entry = conditionColumn(keys, term.column);
  if (entry == nullptr) return false;
  entry->flags |= column_flag::term;
  selection.terms[selection.termCount++] = term;
  return true;
}

bool takeTerms(KeyColumns& keys, Selection& selection, OptionText& text) {
  Kind kind = Kind::first;
  for (;;) {
    if (!takeTerm(keys, selection, text, kind)) return false;
    text.skipBlanks();
    if (text.peek() != '&' && text.peek() != '|') return true;
    kind = text.take() == '&' ? Kind::andTerm : Kind::orTerm;
  }
}

bool parseExpressionForm(KeyColumns& keys, Selection& selection, OptionText& text) {
  if (selection.mode != 0) return false;
  selection.mode = 'P';
  const char operatorChar = text.take();
  const bool quoted = text.peek() == '"';
  if (quoted) text.take();
  if (!takeTerms(keys, selection, text)) return false;
  if ((text.peek() == '"') != quoted) return false;
  if (quoted) text.take();

  const auto terms = std::span(selection.terms).first(selection.termCount);
  const auto highest = std::ranges::max_element(terms, {}, &SelectionTerm::column);
  ColumnEntry& entry = findOrAddColumn(keys, highest->column);
  static_cast<void>(setOperatorFlag(entry, operatorChar));
  entry.matchChar = static_cast<std::uint8_t>(text.last());
  insertCondition(selection, highest->column + 1U, entry);
  return true;
}

}  // namespace

bool parsePrimaryOption(KeyColumns& keys, Selection& selection, OptionText& text) {
  const bool expression = text.peek() == '=' || text.peek() == '#';
  const auto parse = expression ? parseExpressionForm : parseSimpleForm;
  if (!parse(keys, selection, text)) return false;
  ++selection.optionCount;
  return true;
}

}  // namespace tarnvale
