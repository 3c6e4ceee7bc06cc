#include "support/data_sample.h"

#include <array>

namespace tarnvale {

namespace {

enum class Format { fixedText, variableText, spaceCompressed, binary, binaryWithMark };

constexpr std::array<std::size_t, 4> bodyLengths = {12, 100, 250, 33000};

class SampleMaker {
 public:
  SampleMaker(int turn, std::mt19937& random) : format_{turn % 5}, random_(random) {
    constexpr const char* marks[] = {"\r", "\r\n", "\n", "\n\r"};
    if (format_ != Format::binary) mark_ = marks[turn % 4];
    fixedLength_ = bodyLengths[below(bodyLengths.size())];
    const std::array<std::string, 5> options = {"", "v,", "s,", "f=" + std::to_string(fixedLength_) + ",",
                                                "g=" + std::to_string(fixedLength_) + ","};
    sample_.options = options[static_cast<std::size_t>(format_)] + "2-4,9-8";
    sample_.recordNumbers = !isVariable();
    if (isVariable()) sample_.recordLength = "l60000";
  }

  DataSample make(std::size_t size) {
    while (sample_.bytes.size() < size) {
      if (below(8) == 0) addNulBytes();
      addRecord(makeBody(false));
    }
    addRecord(makeBody(true));
    if (isText() && below(2) == 0) sample_.bytes.resize(sample_.bytes.size() - mark_.size());
    if (isText() && below(2) == 0) sample_.bytes += '\x1A';
    return std::move(sample_);
  }

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool isVariable() const { return format_ == Format::variableText || format_ == Format::spaceCompressed; }
  bool isText() const { return format_ == Format::fixedText || isVariable(); }

  void addNulBytes() {
    if (!isVariable()) sample_.deletedLfas.push_back(sample_.bytes.size());
    sample_.bytes.append(isVariable() ? 1 + below(5) : fixedLength_ + mark_.size(), '\0');
  }

  // The last mark of a file tells its convention: the last record must not hold or end like one.
  std::string makeBody(bool last) {
    std::string letters = "AAAABBBaab  ";
    if (format_ == Format::spaceCompressed) letters += '\t';
    if (mark_.size() == 2 && !last) letters += mark_[0];
    std::size_t length = fixedLength_;
    if (isVariable()) length = last ? 20 : below(50) == 0 ? 30000 + below(4000) : below(250);
    std::string body(length, ' ');
    for (char& c : body) c = isText() ? letters[below(letters.size())] : static_cast<char>(below(256));
    if (!isText() && below(4) == 0) body[0] = '\0';
    if (!isText()) body.back() = 'x';
    return body;
  }

  void addRecord(const std::string& body) {
    std::string columns;
    for (std::size_t i = 0; i < body.size() && columns.size() < 9; ++i) {
      const bool tab = body[i] == '\t' && isText();
      columns.append(tab ? 8 - columns.size() % 8 : 1, tab ? ' ' : body[i]);
    }
    columns.resize(std::max<std::size_t>(columns.size(), 9), ' ');
    const auto length = static_cast<std::uint32_t>(body.size() + mark_.size());
    sample_.records.push_back({sample_.bytes.size(), length, columns.substr(1, 3) + columns[8] + columns[7]});
    sample_.bytes += body;
    sample_.bytes += mark_;
  }

  Format format_;
  std::string mark_;
  std::mt19937& random_;
  std::size_t fixedLength_ = 0;
  DataSample sample_;
};

}  // namespace

DataSample makeSample(int turn, std::size_t size, std::mt19937& random) { return SampleMaker(turn, random).make(size); }

}  // namespace tarnvale
