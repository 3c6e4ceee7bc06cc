#include <gtest/gtest.h>

#include <tuple>

#include "driver/leading_options.h"
#include "driver/run_clock.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

TEST(RunClock, ShowsElapsedTimeInTwoDigitHours) {
  const std::pair<std::time_t, const char*> cases[] = {
      {0, "00:00:00"}, {3725, "01:02:05"}, {359999, "99:59:59"}, {360000, "99:59:59"}, {-5, "00:00:00"}};
  for (const auto& [seconds, text] : cases) EXPECT_EQ(formatElapsed(seconds).view(), text);
}

TEST(LeadingOptions, AreTakenUpToTheFirstArgumentWithoutHyphen) {
  // arguments; memory, trains, method, debug mode, .ini file, arguments left; message
  const std::tuple<std::vector<std::string>, const char*, std::string> cases[] = {
      {{"-x", "-1", "-D", "data", "-0"}, "1048576 20000 1 1  2", ""},
      {{"-m1048576", "-t16383"}, "1048576 16383 0 0  0", "Max sort trains set to 16383.\n"},
      {{"-m600000"}, "600000 20000 0 0  0", "Max memory set to 600000.\n"},
      {{"-m524287"}, "1048576 20000 0 0  0", "-m option value too small.  Default assumed.\n"},
      {{"-mabc"}, "1048576 20000 0 0  0", "-m option value too small.  Default assumed.\n"},
      {{"-m2147483648"}, "1048576 20000 0 0  0", "-m option value too large.  Default assumed.\n"},
      {{"-t16384"}, "1048576 20000 0 0  0", "-t option value too large.  Default of 999 assumed.\n"},
      {{"-t0"}, "1048576 20000 0 0  0", "-t option value too small.  Default assumed.\n"},
      {{"-ia.b/c"}, "1048576 20000 0 0 a.b/c.ini 0", ""},
      {{"-I", "foo.cfg", "data"}, "1048576 20000 0 0 foo.cfg 1", ""},
      {{"-i", "-x"}, "1048576 20000 0 0  1", "Invalid parameter for -i option!\n"}};
  for (auto [arguments, settings, message] : cases) {
    LeadingOptions options;
    TestMessages messages;
    std::vector<char*> pointers;
    for (std::string& word : arguments) pointers.push_back(word.data());
    Arguments rest(pointers);
    const bool invalid = message.starts_with("Invalid");
    EXPECT_EQ(takeLeadingOptions(options, messages, rest), invalid ? status::iniNameMissing : 0);
    EXPECT_EQ(messages.text(), message);
    messages.buffer.format("%u %u %d %d %s %zu", options.sort.maxMemory, options.sort.maxTrains,
                           static_cast<int>(options.sort.method), messages.debugMode ? 1 : 0,
                           options.iniFileName.c_str(), rest.size());
    EXPECT_EQ(messages.buffer.view(), settings) << arguments[0];
  }
}

}  // namespace
}  // namespace tarnvale
