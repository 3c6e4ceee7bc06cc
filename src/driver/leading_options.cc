#include "driver/leading_options.h"

#include <algorithm>
#include <cstdlib>

#include "cmdline/character_case.h"
#include "common/output.h"
#include "driver/usage.h"

namespace tarnvale {

namespace {

constexpr long long memoryLimit = 1LL << 31;
constexpr long long highestTrainSetting = 16383;

// The decimal number at the front of the text, after blanks and a sign; 0 when there is none.
long long leadingNumber(const char* text) { return std::strtoll(text, nullptr, 10); }

StatusCode takeShellSort(RunContext& run, const char* /*value*/, Arguments& /*rest*/) {
  run.sortMethod = 0;
  return status::success;
}

StatusCode takeQuickSort(RunContext& run, const char* /*value*/, Arguments& /*rest*/) {
  run.sortMethod = 1;
  return status::success;
}

StatusCode takeUsage(RunContext& run, const char* /*value*/, Arguments& /*rest*/) {
  ShowUsage(run);
  return status::usageRequested;
}

StatusCode takeDebugMode(RunContext& run, const char* /*value*/, Arguments& /*rest*/) {
  run.debugMode = true;
  return status::success;
}

StatusCode takeIniFile(RunContext& run, const char* value, Arguments& rest) {
  constexpr std::size_t maxName = 255;
  if (*value == '\0') {
    if (rest.empty() || rest[0][0] == '-') {
      PutMessage(run, "Invalid parameter for -i option!\n");
      return status::iniNameMissing;
    }
    value = rest[0];
    rest = rest.subspan(1);
  }
  const std::string_view name(value);
  const std::string_view lastPart = name.substr(name.rfind('/') + 1);
  const bool hasExtension = lastPart.find('.') != std::string_view::npos;
  if (name.size() <= maxName && run.iniFileName.join(name, hasExtension ? "" : ".ini")) return status::success;
  PutMessage(run, "The file name of the -i option is too long: it can have 255 characters.\n");
  return status::iniNameMissing;
}

StatusCode takeSortMemory(RunContext& run, const char* value, Arguments& /*rest*/) {
  const long long bytes = leadingNumber(value);
  if (bytes < run.maxMemory / 2) {
    PutMessage(run, "-m option value too small.  Default assumed.\n");
  } else if (bytes >= memoryLimit) {
    PutMessage(run, "-m option value too large.  Default assumed.\n");
  } else if (bytes != run.maxMemory) {
    run.maxMemory = static_cast<std::uint32_t>(bytes);
    putFormatted(run, "Max memory set to %lld.\n", bytes);
  }
  return status::success;
}

StatusCode takeTrainLimit(RunContext& run, const char* value, Arguments& /*rest*/) {
  const long long trains = leadingNumber(value);
  if (trains == 0) {
    PutMessage(run, "-t option value too small.  Default assumed.\n");
  } else if (trains < 0 || trains > highestTrainSetting) {
    PutMessage(run, "-t option value too large.  Default of 999 assumed.\n");
  } else {
    run.maxSortTrains = static_cast<std::uint32_t>(trains);
    putFormatted(run, "Max sort trains set to %lld.\n", trains);
  }
  return status::success;
}

struct LeadingOption {
  char letter;
  /// `value` is the text behind the letter; a value in an argument of its own is taken from the front of `rest`.
  StatusCode (*take)(RunContext&, const char* value, Arguments& rest);
};
constexpr LeadingOption leadingOptions[] = {
    {'0', takeShellSort}, {'1', takeQuickSort},  {'?', takeUsage},      {'d', takeDebugMode},
    {'i', takeIniFile},   {'m', takeSortMemory}, {'t', takeTrainLimit},
};
static_assert(std::ranges::is_sorted(leadingOptions, {}, &LeadingOption::letter));

}  // namespace

StatusCode takeLeadingOptions(RunContext& run, Arguments& arguments) {
  while (!arguments.empty() && arguments[0][0] == '-') {
    const char* const argument = arguments[0];
    arguments = arguments.subspan(1);
    const char letter = lowerCaseChar(argument[1]);
    const auto* const option = std::ranges::find(leadingOptions, letter, &LeadingOption::letter);
    if (option == std::end(leadingOptions)) continue;  // any other letter is ignored
    const StatusCode status = option->take(run, argument + 2, arguments);
    if (status != status::success) return status;
  }
  return status::success;
}

}  // namespace tarnvale
