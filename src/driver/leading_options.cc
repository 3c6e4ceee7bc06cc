#include "driver/leading_options.h"

#include <algorithm>
#include <cstdlib>

#include "common/character_case.h"
#include "driver/usage.h"

namespace tarnvale {

namespace {

constexpr long long memoryLimit = 1LL << 31;
constexpr long long highestTrainSetting = 16383;

// The decimal number at the front of the text, after blanks and a sign; 0 when there is none.
long long leadingNumber(const char* text) { return std::strtoll(text, nullptr, 10); }

StatusCode takeShellSort(LeadingOptions& options, Messages& /*messages*/, const char* /*value*/, Arguments& /*rest*/) {
  options.sort.method = SortMethod::shellSort;
  return status::success;
}

StatusCode takeQuickSort(LeadingOptions& options, Messages& /*messages*/, const char* /*value*/, Arguments& /*rest*/) {
  options.sort.method = SortMethod::quickSort;
  return status::success;
}

StatusCode takeUsage(LeadingOptions& /*options*/, Messages& messages, const char* /*value*/, Arguments& /*rest*/) {
  showUsage(messages);
  return status::usageRequested;
}

StatusCode takeDebugMode(LeadingOptions& /*options*/, Messages& messages, const char* /*value*/, Arguments& /*rest*/) {
  messages.debugMode = true;
  return status::success;
}

StatusCode takeIniFile(LeadingOptions& options, Messages& messages, const char* value, Arguments& rest) {
  constexpr std::size_t maxName = 255;
  if (*value == '\0') {
    if (rest.empty() || rest[0][0] == '-') {
      putMessage(messages, "Invalid parameter for -i option!\n");
      return status::iniNameMissing;
    }
    value = rest[0];
    rest = rest.subspan(1);
  }
  const std::string_view name(value);
  const std::string_view lastPart = name.substr(name.rfind('/') + 1);
  const bool hasExtension = lastPart.find('.') != std::string_view::npos;
  if (name.size() <= maxName && options.iniFileName.join(name, hasExtension ? "" : ".ini")) return status::success;
  putMessage(messages, "The file name of the -i option is too long: it can have 255 characters.\n");
  return status::iniNameMissing;
}

StatusCode takeSortMemory(LeadingOptions& options, Messages& messages, const char* value, Arguments& /*rest*/) {
  const long long bytes = leadingNumber(value);
  if (bytes < options.sort.maxMemory / 2) {
    putMessage(messages, "-m option value too small.  Default assumed.\n");
  } else if (bytes >= memoryLimit) {
    putMessage(messages, "-m option value too large.  Default assumed.\n");
  } else if (bytes != options.sort.maxMemory) {
    options.sort.maxMemory = static_cast<std::uint32_t>(bytes);
    putFormatted(messages, "Max memory set to %lld.\n", bytes);
  }
  return status::success;
}

StatusCode takeTrainLimit(LeadingOptions& options, Messages& messages, const char* value, Arguments& /*rest*/) {
  const long long trains = leadingNumber(value);
  if (trains == 0) {
    putMessage(messages, "-t option value too small.  Default assumed.\n");
  } else if (trains < 0 || trains > highestTrainSetting) {
    putMessage(messages, "-t option value too large.  Default of 999 assumed.\n");
  } else {
    options.sort.maxTrains = static_cast<std::uint32_t>(trains);
    putFormatted(messages, "Max sort trains set to %lld.\n", trains);
  }
  return status::success;
}

struct LeadingOption {
  char letter;
  /// `value` is the text behind the letter; a value in an argument of its own is taken from the front of `rest`.
  StatusCode (*take)(LeadingOptions&, Messages&, const char* value, Arguments& rest);
};
constexpr LeadingOption leadingOptions[] = {
    {'0', takeShellSort}, {'1', takeQuickSort},  {'?', takeUsage},      {'d', takeDebugMode},
    {'i', takeIniFile},   {'m', takeSortMemory}, {'t', takeTrainLimit},
};
static_assert(std::ranges::is_sorted(leadingOptions, {}, &LeadingOption::letter));

}  // namespace

StatusCode takeLeadingOptions(LeadingOptions& options, Messages& messages, Arguments& arguments) {
  while (!arguments.empty() && arguments[0][0] == '-') {
    const char* const argument = arguments[0];
    arguments = arguments.subspan(1);
    const char letter = lowerCaseChar(argument[1]);
    const auto* const option = std::ranges::find(leadingOptions, letter, &LeadingOption::letter);
    if (option == std::end(leadingOptions)) continue;  // any other letter is ignored
    const StatusCode status = option->take(options, messages, argument + 2, arguments);
    if (status != status::success) return status;
  }
  return status::success;
}

}  // namespace tarnvale
