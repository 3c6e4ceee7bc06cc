#include "support/data_sample.h"

#include <algorithm>
#include <iterator>

namespace tarnvale {

namespace {

enum class Format { fixedText, variableText, spaceCompressed, binary, binaryWithMark };

// Columns 2 to 4, 9 and 8. Only in a text a TAB stands for blanks.
std::string keyOf(const std::string& body, bool isText) {
  std::string columns;
  for (std::size_t i = 0; i < body.size() && columns.size() < 9; ++i) {
    const bool tab = body[i] == '\t' && isText;
    columns.append(tab ? 8 - columns.size() % 8 : 1, tab ? ' ' : body[i]);
  }
  columns.resize(std::max<std::size_t>(columns.size(), 9), ' ');
  return columns.substr(1, 3) + columns[8] + columns[7];
}

}  // namespace

DataSample makeSample(int turn, std::size_t size, std::mt19937& random) {
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const Format format{turn % 5};
  const bool isVariable = format == Format::variableText || format == Format::spaceCompressed;
  const bool isText = isVariable || format == Format::fixedText;
  constexpr const char* marks[] = {"\r", "\r\n", "\n", "\n\r"};
  const std::string mark = format == Format::binary ? "" : marks[turn % 4];
  constexpr std::size_t bodyLengths[] = {12, 100, 250, 33000};
  const std::size_t fixedLength = bodyLengths[below(std::size(bodyLengths))];
  const std::string inBytes = "=" + std::to_string(fixedLength) + ",";
  const std::string options[] = {"", "v,", "s,", "f" + inBytes, "g" + inBytes};
  DataSample sample;
  sample.options = options[turn % 5] + "2-4,9-8";
  sample.recordNumbers = !isVariable;
  if (isVariable) sample.recordLength = "l60000";

  // The last mark of a file tells its convention: the last record must not hold or end like one.
  const auto addRecord = [&](bool last) {
    std::string letters = "AAAABBBaab  ";
    if (format == Format::spaceCompressed) letters += '\t';
    if (mark.size() == 2 && !last) letters += mark[0];
    const std::size_t variableLength = !isVariable ? 0 : last ? 20 : below(50) == 0 ? 30000 + below(4000) : below(250);
    std::string body(isVariable ? variableLength : fixedLength, ' ');
    for (char& c : body) c = isText ? letters[below(letters.size())] : static_cast<char>(below(256));
    if (!isText && below(4) == 0) body[0] = '\0';
    if (!isText) body.back() = 'x';
    const auto length = static_cast<std::uint32_t>(body.size() + mark.size());
    sample.records.push_back({sample.bytes.size(), length, keyOf(body, isText)});
    sample.bytes += body + mark;
  };
  const auto addNulBytes = [&] {
    if (!isVariable) sample.deletedLfas.push_back(sample.bytes.size());
    sample.bytes.append(isVariable ? 1 + below(5) : fixedLength + mark.size(), '\0');
  };
  while (sample.bytes.size() < size) {
    if (below(8) == 0) addNulBytes();
    addRecord(false);
  }
  addRecord(true);
  if (isText && below(2) == 0) sample.bytes.resize(sample.bytes.size() - mark.size());
  if (isText && below(2) == 0) sample.bytes += '\x1A';
  return sample;
}

}  // namespace tarnvale
