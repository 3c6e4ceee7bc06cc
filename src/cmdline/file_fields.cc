#include "cmdline/file_fields.h"

#include <algorithm>

#include "common/character_case.h"
#include "common/numbers.h"

namespace tarnvale {

namespace {

constexpr std::size_t maxNameField = 249;
constexpr std::size_t maxRecordLengthField = 254;

void skipBlanks(std::string_view& rest) { rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size())); }

// Blanks, a comma and the blanks behind it; a ";" stays, so that every further field is empty.
void skipDelimiter(std::string_view& rest) {
  skipBlanks(rest);
  if (!rest.starts_with(',')) return;
  rest.remove_prefix(1);
  skipBlanks(rest);
}

StatusCode takeField(std::string_view& rest, std::size_t maxLength, std::string_view& field) {
  const std::size_t end = rest.find_first_of(" ,;");
  const std::size_t length = std::min(end, rest.size());
  if (length > maxLength) return status::fileNameTooLong;
  if (end == std::string_view::npos) return status::commandLineIncomplete;
  field = rest.substr(0, length);
  rest.remove_prefix(length);
  skipDelimiter(rest);
  return status::success;
}

// As takeField, but nothing is taken where the options begin.
StatusCode takeOptionalField(std::string_view& rest, std::size_t maxLength, std::string_view& field) {
  return rest.starts_with('-') ? status::success : takeField(rest, maxLength, field);
}

StatusCode setRecordLength(Settings& settings, std::string_view field) {
  if (field.empty()) return status::success;
  const std::uint32_t longest = maxRecordSize - settings.assumedMarkLength();
  const bool isLength = lowerCaseChar(field.front()) == 'l';
  field.remove_prefix(1);
  const std::uint32_t length = takeNumber(field, longest);
  if (!isLength || !field.empty() || length < 1 || length > longest) return status::invalidRecordLength;
  settings.recordLength = length;
  return status::success;
}

StatusCode setTempPath(Settings& settings, std::string_view field) {
  const bool isDrive = field.size() == 2 && field[1] == ':';
  return settings.tempPath.join(field, isDrive ? "/" : "") ? status::success : status::fileNameTooLong;
}

}  // namespace

StatusCode takeFileFields(Settings& settings, std::string_view& rest) {
  std::string_view data;
  std::string_view index;
  std::string_view recordLength;
  std::string_view tempPath;

  StatusCode status = takeField(rest, maxNameField, data);
  if (status != status::success) return status;
  if (!settings.dataName.assign(data)) return status::fileNameTooLong;

  status = takeOptionalField(rest, maxNameField, index);
  if (status != status::success) return status;
  if (!settings.indexName.assign(index)) return status::fileNameTooLong;
  if (!settings.storedCommandLine.join(data, ",", index, ",", rest)) return status::fileNameTooLong;

  status = takeOptionalField(rest, maxRecordLengthField, recordLength);
  if (status == status::success) status = setRecordLength(settings, recordLength);
  if (status == status::success) status = takeOptionalField(rest, maxNameField, tempPath);
  if (status == status::success) status = setTempPath(settings, tempPath);
  return status;
}

}  // namespace tarnvale
