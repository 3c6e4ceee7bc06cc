#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "faults/job_test.h"

namespace tarnvale {
namespace {

// Kind, code and scope of a fault.
constexpr const char* kinds[] = {"error 5 once", "error 5 same", "error 5 all", "error 28 same", "error 4 thrice",
                                 "short 0 once", "short 0 same", "zero 0 once", "zero 0 same"};
constexpr const char* signals[] = {"before 2 once", "before 15 once", "before 1 once",
                                   "after 2 once",  "after 15 once",  "after 1 once"};
static_assert(EIO == 5 && ENOSPC == 28 && EINTR == 4 && SIGINT == 2 && SIGTERM == 15 && SIGHUP == 1);

std::string faultAt(const char* kind, std::size_t number) { return kind + (" " + std::to_string(number)); }

class Fault : public JobTest {
 protected:
  // Nothing but a transfer can be short, or move nothing.
  [[nodiscard]] bool meets(std::string_view kind, std::size_t number) const {
    const std::string_view call = clean.calls[number - 1].what();
    return kind.starts_with("error") || call.ends_with("read") || call.ends_with("write");
  }

  // Runs one in `every` of the cases, so that all of them take less than a minute, or each one when the environment
  // holds TARNVALE_ALL_FAULTS. The first fault strikes the call of this number.
  void tryFaults(const std::string& faults, std::size_t number, std::size_t every, bool interrupted = false) {
    if (std::getenv("TARNVALE_ALL_FAULTS") == nullptr && cases++ % every != 0) return;
    const Outcome now = run(faults);
    if (now.exitStatus == 0) ++successes;
    constexpr std::size_t shown = 40;
    const std::string trouble = troubleOf(now, interrupted);
    if (!trouble.empty() && ++troubles <= shown)
      ADD_FAILURE() << faults << ", " << clean.describe(number) << ": " << trouble;
  }

  std::size_t cases = 0;
  std::size_t successes = 0;
  std::size_t troubles = 0;
};

TEST_P(Fault, AtAnyCallEndsInSuccessOrInACleanFailure) {
  const std::size_t every = 7 + 6 * (clean.calls.size() / 50);  // no multiple of 2 or 3: of all kinds some are tried
  for (std::size_t number = 1; number <= clean.calls.size(); ++number) {
    for (const char* const kind : kinds) {
      if (meets(kind, number)) tryFaults(faultAt(kind, number), number, every);
    }
  }
}

// A second fault strikes when the first one is being dealt with: in a restored backup, in a clean-up.
class SecondFault : public Fault {};

TEST_P(SecondFault, AtAnyLaterCallCostsNoIndexEither) {
  constexpr const char* pairs[][2] = {
      {"zero 0 once", "error 5 once"}, {"error 5 once", "error 5 same"}, {"error 5 once", "zero 0 same"}};
  for (const auto& [first, second] : pairs) {
    for (std::size_t i = 1; i <= clean.calls.size(); ++i) {
      if (!meets(first, i)) continue;
      const std::string fault = faultAt(first, i) + " ";
      for (std::size_t j = i + 1; j < i + 30; ++j) tryFaults(fault + faultAt(second, j), i, 31);
    }
  }
}

class Signal : public Fault {};

TEST_P(Signal, AtAnyCallLeavesNothingBehindOrAWholeIndexAndTheClosingLine) {
  constexpr std::size_t lateCalls = 13;  // there are not more behind the last that matters
  for (std::size_t number = 1; number <= clean.calls.size(); ++number) {
    const bool late = clean.showsTimes && number + lateCalls > clean.calls.size();
    for (const char* const signal : signals) tryFaults(faultAt(signal, number), number, late ? 1 : 5, true);
  }
  EXPECT_TRUE(successes > 0 || !clean.showsTimes);
}

const auto printName = testing::PrintToStringParamName();
INSTANTIATE_TEST_SUITE_P(Jobs, Fault, testing::ValuesIn(allJobs()), printName);
INSTANTIATE_TEST_SUITE_P(Jobs, SecondFault, testing::ValuesIn(jobsNamed({"CompactInPlace", "TextLf"})), printName);
const auto signalled = jobsNamed({"TextLf", "DuplicatesListed", "NewDataFile", "Reindex", "CompactInPlace",
                                  "CompactInPlaceAlone", "CompactIntoNewFile", "Check", "Display"});
INSTANTIATE_TEST_SUITE_P(Jobs, Signal, testing::ValuesIn(signalled), printName);

}  // namespace
}  // namespace tarnvale
