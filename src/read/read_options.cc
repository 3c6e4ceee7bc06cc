// The options are rows of one table, from which getopt_long gets its letters and names, and the help its lines.
#include "read/read_options.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string_view>
#include <vector>

namespace tarnvale {

namespace {

constexpr int noLetter = 256;  // and more: options that have a long form only

struct OptionRow {
  int letter;
  const char* name;      // the long form, or null
  const char* argument;  // what stands for it in the help, or null
  const char* help;
  const char* (*take)(ReadOptions& options, std::string_view argument);  // null, or what is wrong with the argument
};

// Takes the bytes of a key written as in the lines: \xHH, \\ for a backslash, anything else for itself.
const char* takeKey(std::optional<std::string>& end, std::string_view text) {
  if (end) return "a second key for one end of the range: ";
  end.emplace();
  for (; !text.empty(); text.remove_prefix(1)) {
    unsigned int byte = static_cast<unsigned char>(text.front());
    if (text.starts_with("\\\\")) {
      text.remove_prefix(1);
    } else if (byte == '\\') {
      if (text.size() < 4 || text[1] != 'x') return "neither \\xHH nor \\\\ at a backslash: ";
      text.remove_prefix(2);
      if (std::from_chars(text.data(), text.data() + 2, byte, 16).ptr != text.data() + 2) {
        return "no two hexadecimal digits behind \\x: ";
      }
      text.remove_prefix(1);
    }
    *end += static_cast<char>(byte);
  }
  return nullptr;
}

const char* takeFrom(ReadOptions& options, std::string_view text) { return takeKey(options.from, text); }
const char* takeTo(ReadOptions& options, std::string_view text) { return takeKey(options.to, text); }

const char* takePrefix(ReadOptions& options, std::string_view text) {
  const char* const fault = takeFrom(options, text);
  return fault != nullptr ? fault : takeTo(options, text);
}

const char* takeWholeKey(ReadOptions& options, std::string_view text) {
  options.wholeKey = true;
  return takePrefix(options, text);
}

const char* takeLimit(ReadOptions& options, std::string_view text) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, options.limit);
  return error == std::errc{} && stop == end ? nullptr : "not a number of entries: ";
}

template <auto member, auto value>
const char* set(ReadOptions& options, std::string_view /*argument*/) {
  options.*member = value;
  return nullptr;
}

using Ask = ReadOptions::Ask;

constexpr OptionRow optionRows[] = {
    {'b', nullptr, nullptr, "backwards: in descending order", set<&ReadOptions::backwards, true>},
    {'f', nullptr, "KEY", "from KEY on", takeFrom},
    {'k', nullptr, "KEY", "only entries with this key, filled up with blanks", takeWholeKey},
    {'n', nullptr, "COUNT", "at most COUNT entries", takeLimit},
    {'p', nullptr, "PREFIX", "only entries whose key begins with PREFIX", takePrefix},
    {'r', nullptr, nullptr, "the records themselves, from the data file", set<&ReadOptions::records, true>},
    {'t', nullptr, "KEY", "up to KEY and all keys that begin with it", takeTo},
    {noLetter, "header", nullptr, "the header of the index in words", set<&ReadOptions::ask, Ask::header>},
    {noLetter + 1, "json", nullptr, "JSON, an object for each entry or for the header", set<&ReadOptions::json, true>},
    {'h', "help", nullptr, "show this text", set<&ReadOptions::ask, Ask::help>},
    {noLetter + 2, "version", nullptr, "show the version", set<&ReadOptions::ask, Ask::version>},
};

constexpr const char* usageText =
    "Usage: tarnvale-read [-br] [-n COUNT] [-k KEY | -p PREFIX | -f KEY -t KEY] [--json] INDEX\n"
    "       tarnvale-read --header [--json] INDEX\n";

bool refuse(const char* why, const char* argument = "") {
  std::fprintf(stderr, "tarnvale-read: %s%s\n%s", why, argument, usageText);
  return false;
}

bool checkTogether(const ReadOptions& options) {
  const bool choosesEntries =
      options.from || options.to || options.backwards || options.records || options.limit != ReadOptions::noLimit;
  if (options.ask == Ask::header && choosesEntries) return refuse("--header goes with --json only");
  return !options.records || !options.json || refuse("-r and --json exclude each other");
}

}  // namespace

std::string readHelp() {
  std::string text = usageText;
  text +=
      "Writes the entries of an index in key order, one a line: position, LFA, record\n"
      "length, number among equal keys and key, separated by TABs.\n\n";
  for (const OptionRow& row : optionRows) {
    std::string form = row.letter < noLetter ? std::string("  -") + static_cast<char>(row.letter) : "    ";
    if (row.name != nullptr) form += std::string(row.letter < noLetter ? ", --" : "  --") + row.name;
    if (row.argument != nullptr) form += std::string(" ") + row.argument;
    form.resize(17, ' ');
    text += form + row.help + "\n";
  }
  return text +
         "\nIn a KEY, \\xHH stands for the byte with this hexadecimal number, \\\\ for a backslash.\n"
         "Exit status: 0 something was written, 1 nothing was found, 2 it could not be read.\n";
}

bool parseReadOptions(int argc, char** argv, ReadOptions& options) {
  std::string letters;
  std::vector<option> names;
  for (const OptionRow& row : optionRows) {
    if (row.letter < noLetter) letters += static_cast<char>(row.letter);
    if (row.argument != nullptr) letters += ':';
    if (row.name != nullptr) names.push_back({row.name, no_argument, nullptr, row.letter});
  }
  names.push_back({});
  for (int letter = 0; (letter = ::getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
    const auto* const row = std::ranges::find(optionRows, letter, &OptionRow::letter);
    if (row == std::end(optionRows)) return false;  // getopt_long has said what is wrong
    const char* const argument = row->argument != nullptr ? optarg : "";
    if (const char* const fault = row->take(options, argument)) return refuse(fault, argument);
    if (options.ask == Ask::help || options.ask == Ask::version) return true;
  }
  if (!checkTogether(options)) return false;
  if (argc - optind != 1) return refuse("one index is to be named");
  options.indexName = argv[optind];
  return true;
}

}  // namespace tarnvale
