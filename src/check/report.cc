#include "check/report.h"

#include <cinttypes>
#include <cstdarg>

namespace tarnvale {

void Report::add(const char* pattern, ...) {
  if (++count_ > reportedDifferences || output_ == nullptr) return;
  std::va_list values;
  va_start(values, pattern);
  std::vfprintf(output_, pattern, values);
  va_end(values);
  std::fputc('\n', output_);
}

void Report::addAt(const EntryPlace& place, const char* pattern, ...) {
  if (++count_ > reportedDifferences || output_ == nullptr) return;
  std::fprintf(output_, "key \"%s\", LFA %" PRIu64 ", node %" PRIu64 ": ", escapedText(place.key).c_str(), place.lfa,
               place.node);
  std::va_list values;
  va_start(values, pattern);
  std::vfprintf(output_, pattern, values);
  va_end(values);
  std::fputc('\n', output_);
}

void Report::close() const {
  if (count_ <= reportedDifferences || output_ == nullptr) return;
  std::fprintf(output_, "and %s\n", counted(count_ - reportedDifferences, "more difference").c_str());
}

std::string escapedText(std::span<const std::uint8_t> bytes) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (byte == '\\') {
      text += "\\\\";
    } else if (byte >= ' ' && byte <= '~') {
      text += static_cast<char>(byte);
    } else {
      text += {'\\', 'x', digits[byte / 16], digits[byte % 16]};
    }
  }
  return text;
}

std::string counted(std::uint64_t number, const std::string& noun) {
  std::string text = std::to_string(number) + " " + noun;
  if (number == 1) return text;
  if (!noun.ends_with('y')) return text + "s";
  text.pop_back();
  return text + "ies";
}

}  // namespace tarnvale
