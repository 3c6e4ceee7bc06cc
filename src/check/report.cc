#include "check/report.h"

#include <cinttypes>
#include <cstdarg>

namespace tarnvale {

// Counts a difference. True when it is to be shown.
bool Report::isShown() {
  if (++count_ > shownDifferences || output_ == nullptr) return false;
  progress_.clear();
  return true;
}

void Report::putLine(std::FILE* stream, std::string_view text) {
  if (stream == nullptr) return;
  progress_.clear();
  std::fprintf(stream, "%.*s\n", static_cast<int>(text.size()), text.data());
}

void Report::add(const char* pattern, ...) {
  if (!isShown()) return;
  std::va_list values;
  va_start(values, pattern);
  std::vfprintf(output_, pattern, values);
  va_end(values);
  std::fputc('\n', output_);
}

void Report::addAt(const EntryPlace& place, const char* pattern, ...) {
  if (!isShown()) return;
  std::fprintf(output_, "key \"%s\", LFA %" PRIu64 ", node %" PRIu64 ": ", escapedText(place.key).c_str(), place.lfa,
               place.node);
  std::va_list values;
  va_start(values, pattern);
  std::vfprintf(output_, pattern, values);
  va_end(values);
  std::fputc('\n', output_);
}

void Report::note(std::string_view text) { putLine(notes_, text); }

void Report::fail(std::string_view text) {
  failed_ = true;
  putLine(notes_, text);
}

void Report::close(const std::string& right) {
  if (count_ > shownDifferences) putLine(output_, "and " + counted(count_ - shownDifferences, "more difference"));
  if (count_ != 0) {
    putLine(output_, "index is wrong: " + counted(count_, "difference"));
  } else if (!failed_) {
    putLine(output_, right);
  }
  progress_.clear();
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
