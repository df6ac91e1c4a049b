// fault_sweep.h: a scenario with its first operation failed, then its second, and so on until a run
// meets no fault; each failed once, and with every one behind it.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <string>

#include "platform/os.h"
#include "support/counting_os.h"

namespace korvane::test {

// Runs `act` with the plan over the machine in force. False when it met no fault any more.
template <typename Act>
bool MeetsFault(const CountingPlan& plan, const Act& act) {
  CountingOs counting(platform::os(), plan);
  const platform::ScopedOs in_force(counting.os());
  act();
  return counting.count() >= plan.at;
}

// `round` takes a plan, runs the scenario under it by MeetsFault, checks what must hold whatever
// failed, and gives MeetsFault's result. A scenario of fewer than `at_least` operations isn't the
// one that was meant.
template <typename Round>
void SweepFaults(const std::string& scenario, std::size_t at_least, const Round& round) {
  using Plan = CountingPlan (*)(std::size_t);
  const struct {
    const char* word;
    Plan plan;
  } ways[] = {
      {"once", [](std::size_t at) { return FailOnce(at); }},
      {"from there on", [](std::size_t at) { return FailFrom(at); }},
  };
  for (const auto& way : ways) {
    std::size_t faults = 0;
    for (bool met = true; met && !testing::Test::HasFailure(); faults += met ? 1 : 0) {
      const testing::ScopedTrace trace(
          __FILE__, __LINE__,
          scenario + ": operation " + std::to_string(faults + 1) + " fails " + way.word);
      met = round(way.plan(faults + 1));
    }
    std::cout << scenario << ": " << faults << " operations failed " << way.word << "\n";
    EXPECT_GE(faults, at_least) << scenario;
  }
}

}  // namespace korvane::test
