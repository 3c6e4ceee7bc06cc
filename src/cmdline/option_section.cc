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

char fold(char c) { return static_cast<char>(c | 0x20); }

StatusCode takeNoDuplicates(Settings& settings, OptionText& text) {
  settings.noDuplicates = true;
  settings.errorFileWanted = true;
  if (text.peek() == '0') {
    text.take();
    settings.ignoreDuplicates = true;
  } else if (text.peek() == '$') {
    text.take();
    settings.ignoreDuplicates = true;
    settings.quietDuplicates = true;
    settings.errorFileWanted = false;
  }
  return status::success;
}

StatusCode takeFillPercent(Settings& settings, OptionText& text) {
  if (!isDigit(text.peek()) || !isDigit(text.peek(1))) return status::invalidFillPercent;
  const int tens = text.take() - '0';
  settings.maxFillPercent = static_cast<std::uint32_t>(tens * 10 + (text.take() - '0'));
  return status::success;
}

StatusCode takeOsType(Settings& settings, OptionText& text) {
  constexpr std::uint8_t type1 = 8;
  constexpr std::uint8_t type2 = 16;
  settings.osType = type2;
  if (text.peek() != '=') return status::success;
  text.take();
  const char value = text.take();
  if (value != '1' && value != '2') return status::invalidOsType;
  settings.osType = value == '1' ? type1 : type2;
  return status::success;
}

StatusCode takeCompact(Settings& settings, OptionText& text) {
  settings.compact = true;
  settings.compactLocking = true;
  if (text.peek() != '=') return status::success;
  text.take();
  const char value = text.take();
  if (value != '0' && value != '1') return status::invalidCompactOption;
  settings.compactLocking = value == '0';
  if (value == '0') settings.keepStoredCommand = true;
  return status::success;
}

StatusCode takeVariableLength(Settings& settings, OptionText& /*text*/) {
  settings.variableLength = true;
  settings.writeAllAtEnd = true;
  settings.recordNumberAddressing = false;
  return status::success;
}

StatusCode takeSpaceCompression(Settings& settings, OptionText& text) {
  settings.spaceCompression = true;
  return takeVariableLength(settings, text);
}

// The value behind f or g; whether a record can be that long is seen when the data file is open. The character that
// ends the digits is taken as a separator.
StatusCode takeBinaryLength(Settings& settings, OptionText& text) {
  if (text.peek() != '=') return settings.recordLength == 0 ? status::recordLengthRequired : status::success;
  text.take();
  const std::uint32_t length = text.takeNumber(beyondAnyRecord - 1);
  text.take();
  if (settings.recordLength != 0 && settings.recordLength != length) return status::conflictingRecordLengths;
  settings.recordLength = length;
  return status::success;
}

StatusCode takeBinary(Settings& settings, OptionText& text) {
  settings.binaryRecords = true;
  settings.markless = true;
  return takeBinaryLength(settings, text);
}

StatusCode takeBinaryWithEor(Settings& settings, OptionText& text) {
  settings.binaryRecords = true;
  settings.binaryWithEor = true;
  return takeBinaryLength(settings, text);
}

StatusCode takePrimary(Settings& settings, OptionText& text) {
  if (parsePrimaryOption(settings.keys, settings.selection, text)) return status::success;
  return settings.selection.optionCount >= maxPrimaryOptions ? status::tooManyPrimaryOptions
                                                             : status::invalidPrimaryOption;
}

StatusCode takeUpperCase(Settings& settings, OptionText& /*text*/) {
  if (settings.keys.entryCount != 0) return status::upperCaseTooLate;
  settings.keys.upperCase = true;
  return status::success;
}

StatusCode takeUsage(Settings& /*settings*/, OptionText& /*text*/) { return status::usageRequested; }

template <auto field, bool value>
StatusCode setFlag(Settings& settings, OptionText& /*text*/) {
  settings.*field = value;
  return status::success;
}

struct Option {
  char letter;
  bool keepsKeySpec;  // does not complete a pending key specification
  StatusCode (*take)(Settings&, OptionText&);
};

constexpr Option options[] = {
    {'?', true, takeUsage},
    {'b', false, setFlag<&Settings::tabExpansion, false>},
    {'c', true, takeCompact},
    {'d', false, setFlag<&Settings::noDuplicates, false>},
    {'e', false, setFlag<&Settings::errorFileWanted, true>},
    {'f', false, takeBinary},
    {'g', false, takeBinaryWithEor},
    {'i', true, setFlag<&Settings::display, true>},
    {'m', false, takeFillPercent},
    {'n', false, takeNoDuplicates},
    {'o', false, takeOsType},
    {'p', false, takePrimary},
    {'q', false, setFlag<&Settings::quitIfNoData, true>},
    {'r', true, setFlag<&Settings::reindex, true>},
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
Step takeStray(const Settings& settings, SectionState& section) {
  if (settings.display || settings.reindex) return Step::next;
  if (section.text.text[section.text.position - 2] == ' ') return Step::sectionEnds;
  return section.check(status::invalidKeySyntax);
}

StatusCode takeKeyDigit(const Settings& settings, PendingKeySpec& pending, char c) {
  return addKeyDigit(pending, static_cast<std::uint32_t>(c - '0'), maxRecordSize - settings.assumedMarkLength());
}

Step takeKeyCharacter(const Settings& settings, SectionState& section, char c) {
  if (c != '-') return section.check(takeKeyDigit(settings, section.pending, c));
  if (section.pending.dashSeen) return takeStray(settings, section);
  section.pending.dashSeen = true;
  return Step::next;
}

Step takeOption(Settings& settings, SectionState& section, char c) {
  if (section.compactSeen || (c == 'c' && section.optionSeen)) return section.check(status::conflictingKeyOptions);
  (c == 'c' ? section.compactSeen : section.optionSeen) = true;
  if (isDigit(c) || c == '-') return takeKeyCharacter(settings, section, c);

  const Option* const option = findOption(c);
  if (option == nullptr || !option->keepsKeySpec) {
    const Step step = section.check(completeKeySpec(settings.keys, section.pending));
    if (step != Step::next) return step;
  }
  if (c == '>') return Step::sectionEnds;
  return option != nullptr ? section.check(option->take(settings, section.text)) : takeStray(settings, section);
}

Step takeCharacter(Settings& settings, SectionState& section) {
  if (section.text.atEnd()) {
    const Step last = section.check(completeKeySpec(settings.keys, section.pending));
    return last == Step::next ? Step::sectionEnds : last;
  }
  const char c = fold(section.text.take());
  if (c == ' ' || c == ',') return section.check(completeKeySpec(settings.keys, section.pending));
  return takeOption(settings, section, c);
}

}  // namespace

StatusCode parseOptionSection(Settings& settings, std::string_view section) {
  SectionState state;
  state.text.text = section;
  Step step = Step::next;
  while (step == Step::next) step = takeCharacter(settings, state);
  return step == Step::fails ? state.failure : status::success;
}

}  // namespace tarnvale
