#include "read/header_text.h"

#include <string>
#include <variant>

#include "read/record_reader.h"

namespace tarnvale {

namespace {

struct HeaderField {
  std::string_view words;
  std::string_view member;  // its name in JSON
  std::variant<std::string, std::uint64_t, bool> value;
};

// The ranges of the key as a command line has them: columns from 1, some from high to low.
std::string keyColumns(const IsiHeader& header) {
  std::string columns;
  for (const KeySpec& range : header.keySegments) {
    if (range.length == 0) break;
    const unsigned int last = static_cast<std::uint16_t>(range.start + range.length);
    if (!columns.empty()) columns += ',';
    columns += std::to_string(range.start + 1U);
    if (range.length != 1) columns += '-' + std::to_string(last);
  }
  return columns;
}

void putValue(TextOutput& output, const HeaderField& field, bool json) {
  const auto* const number = std::get_if<std::uint64_t>(&field.value);
  const auto* const flag = std::get_if<bool>(&field.value);
  if (number != nullptr) output.putNumber(*number);
  if (flag != nullptr && json) output.put(*flag ? "true" : "false");
  if (flag != nullptr && !json) output.put(*flag ? "yes" : "no");
}

void putField(TextOutput& output, const HeaderField& field, bool json) {
  const auto* const text = std::get_if<std::string>(&field.value);
  if (json && text != nullptr) return output.putJsonText(field.member, *text);
  if (json) {
    output.put('"');
    output.put(field.member);
    output.put("\":");
  } else {
    constexpr std::size_t widest = 24;
    output.put(field.words);
    output.put(':' + std::string(widest - field.words.size(), ' '));
    if (text != nullptr) output.putEscaped(*text);
  }
  putValue(output, field, json);
}

}  // namespace

void putHeader(TextOutput& output, const IsiHandle& index, bool json) {
  const IsiHeader& header = index.area.header;
  const auto number = [](std::uint64_t value) { return value; };
  const auto text = [](std::string_view value) { return std::string(value); };
  const auto has = [&header](std::uint8_t flag) { return (header.recordFlags & flag) != 0; };
  const HeaderField fields[] = {
      {"Data file", "dataFile", text(textOf(header.dataFileName))},
      {"Command", "command", text(textOf(header.storedCommandLine))},
      {"Record length", "recordLength", number(header.recordLength)},
      {"End-of-record mark", "endOfRecord", text(endOfRecordOf(header.recordFlags).name)},
      {"Variable length", "variableLength", has(record_flag::variableLength)},
      {"TABs stand for blanks", "tabsForBlanks", has(record_flag::spaceCompressed)},
      {"Key length", "keyLength", number(header.keyLength)},
      {"Key columns", "keyColumns", keyColumns(header)},
      {"Keys in upper case", "upperCase", has(record_flag::upperCase)},
      {"Equal keys allowed", "equalKeys", !has(record_flag::noDuplicates)},
      {"Records scanned", "recordsScanned", number(header.recordCount)},
      {"Deleted records", "deletedRecords", number(header.deletedCount)},
      {"Deleted records kept", "deletedKept", !has(record_flag::deletedNotKept)},
      {"Extent of the data", "dataExtent", number(header.dataExtent)},
      {"Record numbers", "recordNumbers", index.recordNumbers},
      {"Change counter", "changeCounter", number(header.spinCounter)},
      {"Big-endian", "bigEndian", index.bigEndian},
  };
  const char* before = json ? "{" : "";
  for (const HeaderField& field : fields) {
    output.put(before);
    putField(output, field, json);
    before = json ? "," : "\n";
  }
  output.put(json ? "}\n" : "\n");
}

}  // namespace tarnvale
