#include <gtest/gtest.h>

#include <cerrno>

#include "faults/jobs.h"

namespace tarnvale {
namespace {

struct Kind {
  const char* name;  // kind, code and scope of a fault
  bool transfersOnly;
};
constexpr Kind kinds[] = {{"error 5 once", false},  {"error 5 same", false},   {"error 5 all", false},
                          {"error 28 same", false}, {"error 4 thrice", false}, {"short 0 once", true},
                          {"short 0 same", true},   {"zero 0 once", true},     {"zero 0 same", true}};
static_assert(EIO == 5 && ENOSPC == 28 && EINTR == 4);

bool isTransfer(const LoggedCall& call) { return call.what().ends_with("read") || call.what().ends_with("write"); }

std::string faultAt(const Kind& kind, std::size_t number) { return kind.name + (" " + std::to_string(number)); }

class Fault : public testing::TestWithParam<Job> {
 protected:
  Fault() : before(filesBefore(workshop, job)), clean(workshop.run(before, job.arguments)) {
    EXPECT_EQ(clean.exitStatus, job.does == Does::refuses ? 1 : 0) << clean.output;
    EXPECT_GT(clean.calls.size(), 3U) << "the layer sees nothing: is it preloaded?";
  }

  [[nodiscard]] bool meets(const Kind& kind, std::size_t number) const {
    return !kind.transfersOnly || isTransfer(clean.calls[number - 1]);
  }

  void tryFaults(const std::string& faults, std::size_t every) {
    if (!isInShare(cases++, every)) return;
    const Outcome now = workshop.run(before, job.arguments, faults);
    std::string where = faults;
    for (std::size_t i = 1; i <= now.calls.size() && where.size() < 200; ++i) {
      if (now.calls[i - 1].faulted != 0) where += ", " + std::to_string(i) + " " + now.describe(i);
    }
    troubles.add(troubleOf(job, before, clean, now), where);
  }

  const Job& job = GetParam();
  Workshop workshop;
  Files before;
  Outcome clean;
  std::size_t cases = 0;
  Troubles troubles;
};

TEST_P(Fault, AtAnyCallEndsInSuccessOrInACleanFailure) {
  const std::size_t every = 7 + 6 * (clean.calls.size() / 50);  // no multiple of 2 or 3: of all kinds some are tried
  for (std::size_t number = 1; number <= clean.calls.size(); ++number) {
    for (const Kind& kind : kinds) {
      if (meets(kind, number)) tryFaults(faultAt(kind, number), every);
    }
  }
  EXPECT_EQ(troubles.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Jobs, Fault, testing::ValuesIn(allJobs()), testing::PrintToStringParamName());

// A second fault strikes when the first one is being dealt with: in a restored backup, in a clean-up.
class SecondFault : public Fault {};

TEST_P(SecondFault, AtAnyLaterCallCostsNoIndexEither) {
  constexpr Kind pairs[][2] = {{{"zero 0 once", true}, {"error 5 once", false}},
                               {{"error 5 once", false}, {"error 5 same", false}},
                               {{"error 5 once", false}, {"zero 0 same", true}}};
  for (const auto& [first, second] : pairs) {
    for (std::size_t i = 1; i <= clean.calls.size(); ++i) {
      if (!meets(first, i)) continue;
      for (std::size_t j = i + 1; j < i + 30; ++j) tryFaults(faultAt(first, i) + ";" + faultAt(second, j), 31);
    }
  }
  EXPECT_EQ(troubles.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Jobs, SecondFault, testing::Values(jobNamed("CompactInPlace"), jobNamed("TextLf")),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tarnvale
