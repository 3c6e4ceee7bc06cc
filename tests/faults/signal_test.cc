#include <gtest/gtest.h>

#include <csignal>

#include "faults/jobs.h"

namespace tarnvale {
namespace {

class Signal : public testing::TestWithParam<Job> {
 protected:
  Signal() : job(GetParam()), before(filesBefore(workshop, job)), clean(workshop.run(before, job.arguments)) {}

  // Calls `look(run, where)` for runs that get a signal at one call, from the given one on.
  template <typename Look>
  void forEachMoment(std::size_t first, std::size_t every, Look look) const {
    constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};
    std::size_t cases = 0;
    for (std::size_t number = first; number <= clean.calls.size(); ++number) {
      for (const char* const moment : {"before", "after"}) {
        for (const int signal : signals) {
          if (!isInShare(cases++, every)) continue;
          const std::string fault = moment + (" " + std::to_string(signal) + " once " + std::to_string(number));
          look(workshop.run(before, job.arguments, fault), fault + ", " + clean.describe(number));
        }
      }
    }
  }

  const Job& job = GetParam();
  Workshop workshop;
  Files before;
  Outcome clean;
};

TEST_P(Signal, AtAnyCallLeavesNothingBehindOrAWholeIndex) {
  Troubles troubles;
  forEachMoment(1, 5, [&](const Outcome& now, const std::string& where) {
    troubles.add(troubleOf(job, before, clean, now, true), where);
    const bool silent = now.exitStatus > 0 && !now.output.ends_with("Processing aborted via user interrupt.\n");
    if (silent) troubles.add("interrupted without saying so", where);
  });
  EXPECT_EQ(troubles.text(), "");
}

class LateSignal : public Signal {};

TEST_P(LateSignal, DoesNotCutOffTheClosingLine) {
  constexpr std::size_t calls = 12;  // there are not more behind the last that matters
  ASSERT_GT(clean.calls.size(), calls);
  Troubles troubles;
  std::size_t late = 0;
  forEachMoment(clean.calls.size() - calls, 1, [&](const Outcome& now, const std::string& where) {
    if (now.exitStatus != 0) return;
    ++late;
    if (!now.showsTimes) troubles.add("success without the line of times", where);
  });
  EXPECT_GT(late, 0U);
  EXPECT_EQ(troubles.text(), "");
}

std::vector<Job> changingJobs() {
  std::vector<Job> jobs;
  for (const char* const name : {"TextLf", "DuplicatesListed", "NewDataFile", "Reindex", "CompactInPlace",
                                 "CompactInPlaceAlone", "CompactIntoNewFile"}) {
    jobs.push_back(jobNamed(name));
  }
  return jobs;
}
const auto printName = testing::PrintToStringParamName();
INSTANTIATE_TEST_SUITE_P(Jobs, Signal, testing::ValuesIn(changingJobs()), printName);
INSTANTIATE_TEST_SUITE_P(Jobs, LateSignal, testing::ValuesIn(changingJobs()), printName);
INSTANTIATE_TEST_SUITE_P(Reading, Signal, testing::Values(jobNamed("Check"), jobNamed("Display")), printName);

}  // namespace
}  // namespace tarnvale
