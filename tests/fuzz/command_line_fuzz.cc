// Random environments and command lines.
//
// The input: the command line, 0xFF, the text of the .ini file, 0xFF, the definition file from its byte 512 on.
#include <algorithm>
#include <bitset>
#include <cstdint>
#include <span>

#include "cmdline/command_line.h"
#include "cmdline/file_names.h"
#include "data/key_extraction.h"
#include "fuzz_support.h"

namespace tarnvale {
namespace {

void checkKeys(const KeyColumns& keys) {
  demand(keys.entryCount <= maxColumnEntries && keys.keyLength <= maxKeyLength, "the column table keeps its limits");
  const auto entries = std::span(keys.table).first(keys.entryCount);
  demand(keys.table[keys.entryCount].keyPosition == ColumnEntry::endOfTable, "the column table is closed");
  const auto descends = [](const ColumnEntry& a, const ColumnEntry& b) { return a.column >= b.column; };
  demand(std::ranges::adjacent_find(entries, descends) == entries.end(), "columns ascend");
  std::bitset<maxKeyLength> filled;
  for (const ColumnEntry& entry : entries) {
    if ((entry.flags & column_flag::key) != 0) filled.set(entry.keyPosition);
  }
  demand(filled.count() == keys.keyLength, "each key byte comes from one column");
  std::uint32_t planned = 0;
  const KeyPlan plan = makeKeyPlan(keys);
  for (const KeyPlan::Range& range : std::span(plan.ranges).first(plan.rangeCount)) planned += range.length;
  demand(planned == keys.keyLength, "the key specifications make the whole key");
}

void checkSelection(const Selection& selection) {
  demand(selection.conditionCount <= maxPrimaryOptions && selection.conditionCount == selection.optionCount,
         "each p option is one condition");
  const auto conditions = std::span(selection.conditions).first(selection.conditionCount);
  demand(std::ranges::is_sorted(conditions, {}, [](const auto& c) { return +c.position; }), "conditions ascend");
  demand(selection.termCount <= maxSelectionTerms, "terms keep their limit");
  for (const SelectionTerm& term : std::span(selection.terms).first(selection.termCount)) {
    const std::size_t length = selection.textOf(term).size();
    demand(length == term.textLength && length >= 1 && length <= maxTermLength, "strings lie in their store");
  }
}

ParsedCommand parse(std::string_view text, const Environment& environment, Messages& messages) {
  int calls = 0;
  const auto afterFields = [&](const Settings&) { return ++calls, status::success; };
  const ParsedCommand command = parseCommandLine(text, environment, messages, afterFields);
  demand(calls == 1 || (calls == 0 && command.status != status::success), "the fields are read once");
  if (command.status != status::success) return command;
  checkKeys(command.settings.keys);
  checkSelection(command.settings.selection);
  return command;
}

// An index keeps its command line, and a rebuild knows the index by it.
void checkStored(const Settings& built, const Environment& environment, Messages& messages) {
  demand(built.storedCommandLine.size() <= maxStoredCommandLine, "an index can keep the command line");
  const ParsedCommand again = parse(built.storedCommandLine, environment, messages);
  demand(again.status == status::success && again.settings.isBuild(), "the command line kept builds an index");
  const auto known = [](const Settings& s) {
    return std::tuple(s.dataName.view(), s.indexName.view(), s.storedCommandLine.view(), s.recordLength,
                      s.keys.keyLength, s.keys.entryCount, s.selection.text.view());
  };
  demand(known(again.settings) == known(built), "the command line kept builds the same index");
}

// Takes from the end of the input what stands behind its last 0xFF.
std::string_view takeLastPart(std::string_view& input) {
  const std::size_t end = std::min(input.rfind('\xFF'), input.size());
  const std::string_view part = input.substr(std::min(end + 1, input.size()));
  input = input.substr(0, end);
  return part;
}

}  // namespace

void tryInput(std::string_view input) {
  ::setenv("QLX_SYSTEM", ScratchFile::folder().c_str(), 1);
  ::setenv("QLX_TERM", "terminal", 1);
  static const ScratchFile iniFile("environment.ini");
  static const ScratchFile definitionFile("terminal.def");
  static Messages messages;
  messages.debugMode = true;
  definitionFile.fill(std::string(512, '\0').append(takeLastPart(input)));
  iniFile.fill(takeLastPart(input));
  input = input.substr(0, input.find('\0')).substr(0, maxCommandLine);  // what the arguments of a program can hold

  const Environment environment(iniFile.name().c_str());
  const ParsedCommand command = parse(input, environment, messages);
  for (FileName name : {command.settings.dataName, command.settings.indexName}) {
    static_cast<void>(resolveFileName(readFileNaming(environment), name));
  }
  if (command.status == status::success && command.settings.isBuild()) {
    checkStored(command.settings, environment, messages);
  }
}

}  // namespace tarnvale
