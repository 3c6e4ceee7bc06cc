#include "cmdline/primary_option.h"

#include <algorithm>
#include <optional>

#include "cmdline/key_specification.h"

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

// The decimal number that follows, 0 when no digit does; nothing when it is larger than `limit`.
std::optional<std::uint32_t> takeNumber(OptionText& text, std::uint32_t limit) {
  std::uint32_t value = 0;
  while (isDigit(text.peek())) {
    value = value * 10 + static_cast<std::uint32_t>(text.take() - '0');
    if (value > limit) return std::nullopt;
  }
  return value;
}

// The column's entry, with room for the entries of other columns left. Null when the table is full.
ColumnEntry* conditionColumn(RunContext& run, std::uint32_t column) {
  const std::uint32_t before = run.columnEntryCount;
  ColumnEntry& entry = findOrAddColumn(run, static_cast<std::uint16_t>(column));
  const bool full = run.columnEntryCount > before && run.columnEntryCount >= maxColumnEntries;
  return full ? nullptr : &entry;
}

// Enters a condition behind those of the same or a lower position.
void insertCondition(RunContext& run, std::uint32_t position, const ColumnEntry& entry) {
  PrimaryCondition condition{};
  condition.position = static_cast<std::uint16_t>(position);
  condition.operatorBits = static_cast<std::uint8_t>(entry.flags & column_flag::condition);
  condition.character = entry.matchChar;
  auto* const end = run.primaryConditions.begin() + run.primaryConditionCount;
  auto* const place = std::find_if(run.primaryConditions.begin(), end,
                                   [&](const PrimaryCondition& other) { return other.position > condition.position; });
  std::copy_backward(place, end, end + 1);
  *place = condition;
  ++run.primaryConditionCount;
}

bool setOperatorFlag(ColumnEntry& entry, char operatorChar) {
  if (operatorChar != '=' && operatorChar != '#') return false;
  entry.flags |= operatorChar == '=' ? column_flag::equal : column_flag::notEqual;
  return true;
}

bool parseSimpleForm(RunContext& run, OptionText& text) {
  run.primaryMode = 'p';
  if (run.primaryOptionCount >= maxPrimaryOptions) return false;
  const auto position = takeNumber(text, maxConditionColumn);
  if (!position) return false;
  ColumnEntry* const entry = conditionColumn(run, *position - 1);
  if (entry == nullptr || !setOperatorFlag(*entry, text.take())) return false;
  const bool quoted = text.peek() == '"' && text.peek(1) != '\0' && text.peek(2) == '"';
  if (quoted) text.take();
  entry->matchChar = static_cast<std::uint8_t>(text.take());
  if (quoted) text.take();
  insertCondition(run, *position, *entry);
  return true;
}

Operator takeOperator(OptionText& text) {
  const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : c; };
  for (const OperatorSpelling& spelling : operatorSpellings) {
    bool matches = true;
    for (std::size_t i = 0; i < spelling.text.size(); ++i) matches = matches && upper(text.peek(i)) == spelling.text[i];
    if (!matches) continue;
    text.position += spelling.text.size();
    return spelling.comparison;
  }
  return Operator::none;
}

// A string in single quotes, in which two stand for one, into the run's store of strings.
std::optional<std::string_view> takeString(RunContext& run, OptionText& text) {
  if (text.take() != '\'') return std::nullopt;
  const std::size_t start = run.selectionText.size();
  for (;;) {
    if (text.atEnd()) return std::nullopt;
    const char c = text.take();
    if (c == '\'') {
      if (text.peek() != '\'') break;
      text.take();
    }
    if (!run.selectionText.append({&c, 1})) return std::nullopt;
  }
  const std::string_view string = run.selectionText.view().substr(start);
  if (string.empty() || string.size() > maxTermLength) return std::nullopt;
  return string;
}

bool takeTerm(RunContext& run, OptionText& text, Kind kind) {
  if (run.selectionTermCount == maxSelectionTerms) return false;
  text.skipBlanks();
  const auto column = takeNumber(text, maxTermColumn);
  if (!column || *column == 0) return false;
  text.skipBlanks();
  const Operator comparison = takeOperator(text);
  if (comparison == Operator::none) return false;
  text.skipBlanks();
  const auto string = takeString(run, text);
  if (!string) return false;
  ColumnEntry* const entry = conditionColumn(run, *column - 1);
  if (entry == nullptr) return false;
  entry->flags |= column_flag::term;
  run.selectionTable[run.selectionTermCount++] = {kind, comparison, SelectionTerm::Result::unknown,
                                                  static_cast<std::uint16_t>(*column - 1), *string};
  return true;
}

bool takeTerms(RunContext& run, OptionText& text) {
  Kind kind = Kind::first;
  for (;;) {
    if (!takeTerm(run, text, kind)) return false;
    text.skipBlanks();
    if (text.peek() != '&' && text.peek() != '|') break;
    kind = text.take() == '&' ? Kind::andTerm : Kind::orTerm;
  }
  run.selectionTable[run.selectionTermCount].kind = Kind::end;
  return true;
}

bool parseExpressionForm(RunContext& run, OptionText& text) {
  if (run.primaryMode != 0) return false;
  run.primaryMode = 'P';
  const char operatorChar = text.take();
  const bool quoted = text.peek() == '"';
  if (quoted) text.take();
  if (!takeTerms(run, text)) return false;
  if ((text.peek() == '"') != quoted) return false;
  if (quoted) text.take();

  const auto* const end = run.selectionTable.begin() + run.selectionTermCount;
  const auto* const highest =
      std::max_element(static_cast<const SelectionTerm*>(run.selectionTable.begin()), end,
                       [](const SelectionTerm& a, const SelectionTerm& b) { return a.column < b.column; });
  ColumnEntry& entry = findOrAddColumn(run, highest->column);
  static_cast<void>(setOperatorFlag(entry, operatorChar));
  entry.matchChar = static_cast<std::uint8_t>(text.last());
  insertCondition(run, highest->column + 1U, entry);
  return true;
}

}  // namespace

bool parsePrimaryOption(RunContext& run, OptionText& text) {
  const bool expression = text.peek() == '=' || text.peek() == '#';
  if (!(expression ? parseExpressionForm(run, text) : parseSimpleForm(run, text))) return false;
  ++run.primaryOptionCount;
  return true;
}

}  // namespace tarnvale
