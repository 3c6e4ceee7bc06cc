#include "record_format.h"

#include <algorithm>
#include <bit>
#include <charconv>

#include "files.h"

namespace bench {

namespace {

constexpr std::uint8_t blank = ' ';
constexpr std::size_t tabWidth = 8;

bool takePrefix(std::string_view& rest, std::string_view prefix) {
  if (!rest.starts_with(prefix)) return false;
  rest.remove_prefix(prefix.size());
  return true;
}

std::uint32_t takeNumber(std::string_view& rest) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  if (error != std::errc{}) fail("a number is missing before \"" + std::string(rest) + "\"");
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  return value;
}

std::vector<KeyRange> readRanges(std::string_view rest) {
  std::vector<KeyRange> ranges;
  do {
    KeyRange range;
    range.first = takeNumber(rest) - 1;
    range.last = takePrefix(rest, "-") ? takeNumber(rest) - 1 : range.first;
    ranges.push_back(range);
  } while (takePrefix(rest, ","));
  return ranges;
}

std::uint32_t lengthOf(const KeyRange& range) {
  return (range.first < range.last ? range.last - range.first : range.first - range.last) + 1;
}

Term takeTerm(std::string_view& rest) {
  Term term;
  term.column = takeNumber(rest) - 1;
  const std::size_t end = rest.size() > 2 ? rest.find('\'', 2) : std::string_view::npos;
  if (end == std::string_view::npos || rest[1] != '\'') fail("not a term: " + std::string(rest));
  term.operation = rest[0];
  term.text = rest.substr(2, end - 2);
  rest.remove_prefix(end + 1);
  return term;
}

std::vector<std::vector<Term>> readSelection(std::string_view rest) {
  std::vector<std::vector<Term>> groups;
  do {
    groups.emplace_back();
    do groups.back().push_back(takeTerm(rest));
    while (takePrefix(rest, "&"));
  } while (takePrefix(rest, "|"));
  return groups;
}

bool holds(const Term& term, Bytes record) {
  if (term.column + term.text.size() > record.size()) return false;  // no job has records that end in a term
  const std::uint8_t* const columns = record.data() + term.column;
  const int order = term.text.size() == 1 ? *columns - static_cast<std::uint8_t>(term.text[0])
                                          : std::memcmp(columns, term.text.data(), term.text.size());
  return term.operation == '=' ? order == 0 : term.operation == '<' ? order < 0 : order > 0;
}

// From columns that reach to the key's last one.
void copyRanges(const RecordFormat& format, const std::uint8_t* columns, std::uint8_t* key) {
  for (const KeyRange& range : format.key) {
    if (range.first <= range.last) {
      std::memcpy(key, columns + range.first, lengthOf(range));
    } else {
      std::reverse_copy(columns + range.last, columns + range.first + 1, key);
    }
    key += lengthOf(range);
  }
}

// How many of eight bytes stand before a TAB.
std::size_t lengthBeforeTab(std::uint64_t bytes) {
  constexpr std::uint64_t each = 0x0101010101010101;
  const std::uint64_t zeroForTab = bytes ^ '\t' * each;
  return static_cast<std::size_t>(std::countr_zero((zeroForTab - each) & ~zeroForTab & 0x80 * each)) / 8;
}

// The record's columns up to the key's last one, in memory that is kept from one record to the next.
const std::uint8_t* keyColumns(const RecordFormat& format, Bytes record) {
  std::uint64_t piece = 0;
  static std::vector<std::uint8_t> columns;
  if (columns.size() < format.keyColumns + sizeof piece) columns.resize(format.keyColumns + sizeof piece);
  std::size_t column = 0;
  while (column < format.keyColumns && !record.empty()) {
    const std::size_t size = std::min(record.size(), sizeof piece);
    if (size == sizeof piece) {
      std::memcpy(&piece, record.data(), sizeof piece);
    } else {
      std::memcpy(&piece, record.data(), size);
    }
    std::memcpy(&columns[column], &piece, sizeof piece);
    const std::size_t length = format.expandTabs ? std::min(lengthBeforeTab(piece), size) : size;
    column += length;
    record = record.subspan(length);
    if (length == size || column >= format.keyColumns) continue;
    std::memset(&columns[column], blank, tabWidth);
    column += tabWidth - column % tabWidth;
    record = record.subspan(1);
  }
  if (column < format.keyColumns) std::memset(&columns[column], blank, format.keyColumns - column);
  return columns.data();
}

struct FormatWord {
  std::string_view text;
  void (*take)(RecordFormat&, std::string_view value);
};
constexpr FormatWord formatWords[] = {
    {"key=", [](RecordFormat& format, std::string_view value) { format.key = readRanges(value); }},
    {"size=", [](RecordFormat& format, std::string_view value) { format.recordSize = takeNumber(value); }},
    {"select=", [](RecordFormat& format, std::string_view value) { format.select = readSelection(value); }},
    {"eor=crlf", [](RecordFormat& format, std::string_view) { format.mark = "\r\n"; }},
    {"eor=none", [](RecordFormat& format, std::string_view) { format.mark = {}; }},
    {"tabs", [](RecordFormat& format, std::string_view) { format.expandTabs = true; }},
    {"upper", [](RecordFormat& format, std::string_view) { format.upperCase = true; }},
    {"first", [](RecordFormat& format, std::string_view) { format.firstOfEqualKeys = true; }},
    {"offsets", [](RecordFormat& format, std::string_view) { format.byNumber = false; }},
};

}  // namespace

RecordFormat readFormat(std::span<char* const> words) {
  RecordFormat format;
  for (const std::string_view text : words) {
    std::string_view rest = text;
    const auto word = std::ranges::find_if(formatWords, [&](const FormatWord& w) { return takePrefix(rest, w.text); });
    if (word == std::end(formatWords)) fail("not a word of a format: " + std::string(text));
    word->take(format, rest);
  }
  for (const KeyRange& range : format.key) {
    format.keyLength += lengthOf(range);
    format.keyColumns = std::max({format.keyColumns, range.first + 1, range.last + 1});
  }
  if (format.keyLength == 0 || format.keyLength > maxKeyLength) fail("a key has 1 to 150 bytes");
  if (format.mark.empty() && format.recordSize == 0) fail("records without a mark need a size");
  return format;
}

bool isSelected(const RecordFormat& format, Bytes record) {
  const auto all = [&](const std::vector<Term>& group) {
    return std::ranges::all_of(group, [&](const Term& term) { return holds(term, record); });
  };
  return format.select.empty() || std::ranges::any_of(format.select, all);
}

void extractKey(const RecordFormat& format, Bytes record, std::uint8_t* key) {
  const bool whole = !format.expandTabs && record.size() >= format.keyColumns;
  copyRanges(format, whole ? record.data() : keyColumns(format, record), key);
  if (!format.upperCase) return;
  for (std::uint8_t& byte : std::span(key, format.keyLength)) byte = toUpper(byte);
}

}  // namespace bench
