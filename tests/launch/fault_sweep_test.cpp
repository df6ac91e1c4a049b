// A start, from the process entry to its exit code, with every operation of the platform failed in
// turn.
#include "support/fault_sweep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "launch/instance_mutex.h"
#include "launch/launch_sequence.h"
#include "launch/window_messages.h"
#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"

namespace korvane {
namespace {

class LaunchFaultSweep : public testing::Test {
 protected:
  LaunchFaultSweep() {
    StartupRecorder::instance();  // its faults are swept in its own room
    machine_.windows.on_idle = [this] {
      const auto window = machine_.windows.Find(kWindowClass, kWindowTitle);
      if (window != nullptr) {
        static_cast<void>(machine_.windows.Destroy(window));
      }
    };
  }

  bool Round(test::CountingPlan plan) {
    std::string_view failed;
    plan.counted = [&failed, left = plan.at](const test::Operation& operation) mutable {
      if (operation.fallible && left-- == 1) {
        failed = operation.name;
      }
      return operation.fallible;
    };
    int code = -1;
    const bool met = test::MeetsFault(plan, [&code] {
      code = RunLaunchSequence();
      SetInstanceMutex({}, false);  // goes with the process
    });
    const auto calls = machine_.journal.Take();
    if (code != 0) {
      EXPECT_EQ(code, 1);
      if (plan.action == test::CountingPlan::Action::kFailOnce) {
        fatal_.insert(failed);
      }
    } else {
      const auto released = std::ranges::find(calls, "ReleaseMutex(mutex)");
      const auto left = std::ranges::find(calls, "LeaveApartment()");
      EXPECT_NE(left, calls.end());
      EXPECT_TRUE(released == calls.end() || released < left);
    }
    EXPECT_EQ(machine_.windows.Find(kWindowClass, kWindowTitle), nullptr);
    return met;
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
  std::set<std::string_view> fatal_;  // the ones without which no window came up
};

TEST_F(LaunchFaultSweep, WhereAWindowCanComeUpItDoes) {
  test::SweepFaults("window start", 40, [this](const auto& plan) { return Round(plan); });
  EXPECT_THAT(fatal_,
              testing::ElementsAre("DynamicLibraries.RestrictSearchPath", "WindowSystem.Create",
                                   "WindowSystem.RegisterWindowClass"));
}

}  // namespace
}  // namespace korvane
