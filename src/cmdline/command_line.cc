#include "cmdline/command_line.h"

#include "cmdline/file_fields.h"
#include "cmdline/key_specification.h"
#include "cmdline/option_section.h"
#include "common/character_case.h"

namespace tarnvale {

namespace {

StatusCode skipToOptions(std::string_view& rest) {
  const std::size_t opener = rest.find_first_of("-;");
  if (opener == std::string_view::npos) return status::commandLineIncomplete;
  rest.remove_prefix(opener);
  return status::success;
}

StatusCode readOptions(Settings& settings, std::string_view rest) {
  const StatusCode status = skipToOptions(rest);
  return status == status::success ? parseOptionSection(settings, rest) : status;
}

// A command that an index cannot keep is refused before any file is made. Only a build keeps it, and only the options
// tell whether this is one: they are read ahead, into a copy.
StatusCode checkStoredCommand(Settings settings, std::string_view rest, Messages& messages) {
  if (settings.storedCommandLine.size() <= maxStoredCommandLine) return status::success;
  const bool kept = readOptions(settings, rest) == status::success && settings.isBuild();
  if (!kept) return status::success;
  composeMessage(messages, {"The command line is too long: an index can keep 527 characters of it."});
  return status::commandLineTooLong;
}

void readNoPathSetting(Settings& settings, const Environment& environment, Messages& messages) {
  const std::string_view value = lookupSetting(environment, "QLX_NOPATH").value_or("");
  if (messages.debugMode) putComposed(messages, {"'QLX_NOPATH=", fileName(value), "'\n"});
  if (compareNoCase(value, "ON") == 0) settings.discardPathInHeader = true;
}

StatusCode checkBinaryOptions(const Settings& settings) {
  if (!settings.binaryRecords) return status::success;
  if (settings.variableLength) return status::conflictingOptions;
  return settings.recordLength == 0 ? status::recordLengthRequired : status::success;
}

// What remains to be said and checked once all options are known. From here on no column is added.
StatusCode completeOptions(Settings& settings, const Environment& environment, Messages& messages) {
  readNoPathSetting(settings, environment, messages);
  if (settings.selection.mode == 'P') settings.selection.conditions.back().character = 0xFF;  // the expression form
  const StatusCode status = checkBinaryOptions(settings);
  if (status != status::success) return status;
  if (settings.keys.entryCount == 0 && settings.isBuild()) return status::commandLineIncomplete;
  closeColumnTable(settings.keys);
  if (messages.debugMode) displayColumnTable(messages, settings.keys);
  return status::success;
}

}  // namespace

ParsedCommand parseCommandLine(std::string_view commandLine, const Environment& environment, Messages& messages,
                               FunctionRef<StatusCode(const Settings&)> afterFields) {
  if (messages.debugMode) {
    putMessage(messages, "Command line is:");
    putMessage(messages, commandLine);
    putMessage(messages, "\n");
  }
  ParsedCommand command;
  Settings& settings = command.settings;
  std::string_view rest = commandLine;
  StatusCode& status = command.status;
  status = takeFileFields(settings, rest);
  if (status == status::success) status = checkStoredCommand(settings, rest, messages);
  if (status == status::success) status = afterFields(settings);
  if (status == status::success) status = readOptions(settings, rest);
  if (status == status::success) status = completeOptions(settings, environment, messages);
  return command;
}

}  // namespace tarnvale
