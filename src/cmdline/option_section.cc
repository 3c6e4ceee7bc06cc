// One table of option letters and the one loop over it.
//
// The loop takes a character at a time and folds it by setting bit 0x20: letters become lower case, and the end of the
// section counts as one more blank. A key specification is pending while its digits arrive; most characters complete
// it.
#include "cmdline/option_section.h"

#include <algorithm>

#include "cmdline/key_specification.h"
#include "cmdline/option_text.h"
#include "cmdline/primary_option.h"

namespace tarnvale {

namespace {

constexpr std::int32_t beyondAnyRecord = 1000000;

char fold(char c) { return static_cast<char>(c | 0x20); }

StatusCode takeNoDuplicates(RunContext& run, OptionText& text) {
  run.noDuplicates = true;
  run.errorFileWanted = true;
  if (text.peek() == '0') {
    text.take();
    run.ignoreDuplicatesForNodup = true;
  } else if (text.peek() == '$') {
    text.take();
    run.ignoreDuplicatesForNodup = true;
    run.quietDuplicates = true;
    run.errorFileWanted = false;
  }
  return status::success;
}

StatusCode takeFillPercent(RunContext& run, OptionText& text) {
  if (!isDigit(text.peek()) || !isDigit(text.peek(1))) return status::invalidFillPercent;
  const int tens = text.take() - '0';
  run.maxFillPercent = static_cast<std::uint32_t>(tens * 10 + (text.take() - '0'));
  return status::success;
}

StatusCode takeOsType(RunContext& run, OptionText& text) {
  constexpr std::uint8_t type1 = 8;
  constexpr std::uint8_t type2 = 16;
  run.osType = type2;
  if (text.peek() != '=') return status::success;
  text.take();
  const char value = text.take();
  if (value != '1' && value != '2') return status::invalidOsType;
  run.osType = value == '1' ? type1 : type2;
  return status::success;
}

StatusCode takeCompact(RunContext& run, OptionText& text) {
  run.compactOptions |= compact_option::compaction;
  run.compactLocking = true;
  if (text.peek() != '=') return status::success;
  text.take();
  const char value = text.take();
  if (value != '0' && value != '1') return status::invalidCompactOption;
  run.compactLocking = value == '0';
  if (value == '0') run.compactOptions |= compact_option::keepStoredCommand;
  return status::success;
}

StatusCode takeVariableLength(RunContext& run, OptionText& /*text*/) {
  run.variableLengthAllowed = true;
  run.writeAllAtEnd = true;
  run.recordNumberAddressing = false;
  return status::success;
}

StatusCode takeSpaceCompression(RunContext& run, OptionText& text) {
  run.spaceCompressionAllowed = true;
  return takeVariableLength(run, text);
}

// The value behind f or g; whether a record can be that long is seen when the data file is open. The character that
// ends the digits is taken as a separator.
StatusCode takeBinaryLength(RunContext& run, OptionText& text) {
  if (text.peek() != '=') return run.recordLengthSpec == 0 ? status::recordLengthRequired : status::success;
  text.take();
  std::int32_t length = 0;
  while (isDigit(text.peek())) length = std::min(length * 10 + (text.take() - '0'), beyondAnyRecord);
  text.take();
  if (run.recordLengthSpec != 0 && run.recordLengthSpec != length) return status::conflictingRecordLengths;
  run.recordLengthSpec = length;
  return status::success;
}

StatusCode takeBinary(RunContext& run, OptionText& text) {
  run.binaryRecords = true;
  run.eorLength = 0;
  return takeBinaryLength(run, text);
}

StatusCode takeBinaryWithEor(RunContext& run, OptionText& text) {
  run.binaryRecords = true;
  run.binaryWithEor = true;
  return takeBinaryLength(run, text);
}

StatusCode takePrimary(RunContext& run, OptionText& text) {
  if (parsePrimaryOption(run, text)) return status::success;
  return run.primaryOptionCount >= maxPrimaryOptions ? status::tooManyPrimaryOptions : status::invalidPrimaryOption;
}

StatusCode takeUpperCase(RunContext& run, OptionText& /*text*/) {
  if (run.columnEntryCount != 0) return status::upperCaseTooLate;
  run.upperCaseKeys = true;
  return status::success;
}

StatusCode takeUsage(RunContext& /*run*/, OptionText& /*text*/) { return status::usageRequested; }

template <auto field, bool value>
StatusCode setFlag(RunContext& run, OptionText& /*text*/) {
  run.*field = value;
  return status::success;
}

struct Option {
  char letter;
  bool keepsKeySpec;  // does not complete a pending key specification
  StatusCode (*take)(RunContext&, OptionText&);
};

using Settings = CommandLineState;
constexpr Option options[] = {
    {'?', true, takeUsage},
    {'b', false, setFlag<&Settings::tabExpansion, false>},
    {'c', true, takeCompact},
    {'d', false, setFlag<&Settings::noDuplicates, false>},
    {'e', false, setFlag<&Settings::errorFileWanted, true>},
    {'f', false, takeBinary},
    {'g', false, takeBinaryWithEor},
    {'i', true, setFlag<&Settings::displayInfoRequested, true>},
    {'m', false, takeFillPercent},
    {'n', false, takeNoDuplicates},
    {'o', false, takeOsType},
    {'p', false, takePrimary},
    {'q', false, setFlag<&Settings::quitIfNoData, true>},
    {'r', true, setFlag<&Settings::reindexRequested, true>},
    {'s', false, takeSpaceCompression},
    {'u', false, takeUpperCase},
    {'v', false, takeVariableLength},
    {'w', false, setFlag<&Settings::writeAllAtEnd, true>},
    {'x', false, setFlag<&Settings::recordCountEnabled, false>},
    {'y', false, setFlag<&Settings::noDriveInHeader, true>},
    {'z', true, setFlag<&Settings::discardPathInHeader, true>},
};
static_assert(std::ranges::is_sorted(options, {}, &Option::letter));

const Option* findOption(char letter) {
  const auto* const found = std::ranges::lower_bound(options, letter, {}, &Option::letter);
  return found != std::end(options) && found->letter == letter ? found : nullptr;
}

enum class Step { next, sectionEnds, fails };

// What the loop carries from one character to the next.
struct SectionState {
  OptionText text;
  PendingKeySpec pending;
  bool optionSeen = false;   // any character but blanks, commas and the option c
  bool compactSeen = false;  // c tolerates no other option
  StatusCode failure = status::success;

  Step check(StatusCode code) {
    failure = code;
    return code == status::success ? Step::next : Step::fails;
  }
};

// A character that no option takes: ignored for a display or reindex, an end behind a blank, else an error.
Step takeStray(const RunContext& run, SectionState& section) {
  if (run.displayInfoRequested || run.reindexRequested) return Step::next;
  if (section.text.text[section.text.position - 2] == ' ') return Step::sectionEnds;
  return section.check(status::invalidKeySyntax);
}

Step takeKeyCharacter(const RunContext& run, SectionState& section, char c) {
  if (c != '-') return section.check(addKeyDigit(run, section.pending, static_cast<std::uint32_t>(c - '0')));
  if (section.pending.dashSeen) return takeStray(run, section);
  section.pending.dashSeen = true;
  return Step::next;
}

Step takeOption(RunContext& run, SectionState& section, char c) {
  if (section.compactSeen || (c == 'c' && section.optionSeen)) return section.check(status::conflictingKeyOptions);
  (c == 'c' ? section.compactSeen : section.optionSeen) = true;
  if (isDigit(c) || c == '-') return takeKeyCharacter(run, section, c);

  const Option* const option = findOption(c);
  if (option == nullptr || !option->keepsKeySpec) {
    const Step step = section.check(completeKeySpec(run, section.pending));
    if (step != Step::next) return step;
  }
  if (c == '>') return Step::sectionEnds;
  return option != nullptr ? section.check(option->take(run, section.text)) : takeStray(run, section);
}

Step takeCharacter(RunContext& run, SectionState& section) {
  if (section.text.atEnd()) {
    const Step last = section.check(completeKeySpec(run, section.pending));
    return last == Step::next ? Step::sectionEnds : last;
  }
  const char c = fold(section.text.take());
  if (c == ' ' || c == ',') return section.check(completeKeySpec(run, section.pending));
  return takeOption(run, section, c);
}

}  // namespace

StatusCode parseOptionSection(RunContext& run, std::string_view section) {
  SectionState state;
  state.text.text = section;
  Step step = Step::next;
  while (step == Step::next) step = takeCharacter(run, state);
  return step == Step::fails ? state.failure : status::success;
}

}  // namespace tarnvale
