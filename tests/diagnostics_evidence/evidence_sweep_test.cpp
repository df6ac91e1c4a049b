// Every scenario of the evidence with each operation failed, once and from there on; and the
// preference with each of its operations failed, and its ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <vector>

#include "diagnostics_evidence/evidence_scenarios.h"

namespace korvane::test {
namespace {

using Process = LibboxLogBuffer;

using MakePlan = CountingPlan (*)(std::size_t operation);

// Runs each scenario with the plan at the first operation, the second, and so on, until a run
// meets none; gives the number of runs that met one.
std::size_t Sweep(MakePlan plan) {
  std::size_t runs = 0;
  for (const EvidenceScenario& scenario : EvidenceScenarios()) {
    for (std::size_t operation = 1;; ++operation) {
      SCOPED_TRACE(std::string(scenario.name) + ", operation " + std::to_string(operation));
      EvidenceWorld world;
      scenario.leave(world);
      world.Start();
      const bool met = world.Suffer(plan(operation), scenario.act) >= operation;
      CheckRecovery(world, scenario, /*faulty=*/true);
      if (!met || testing::Test::HasFailure()) {
        break;
      }
      ++runs;
    }
  }
  return runs;
}

TEST(EvidenceSweep, LosesNothingToAnOperationThatFailsOnce) {
  const std::size_t runs = Sweep([](std::size_t operation) { return FailOnce(operation); });
  std::cout << runs << " faults\n";
  EXPECT_GT(runs, 500U);
}

TEST(EvidenceSweep, LosesNothingToOperationsThatFailFromThereOn) {
  const std::size_t runs = Sweep([](std::size_t operation) { return FailFrom(operation); });
  std::cout << runs << " lasting faults\n";
  EXPECT_GT(runs, 500U);
}

// The preference: whatever happens in the middle, the next start is either wholly on or wholly off,
// and off leaves nothing; a change can be made again.
void CheckPreference(EvidenceWorld& world) {
  const bool on = world.Start().getWindowsDiagnosticsEnabled();
  const auto files = world.Snapshot();
  const bool revoked = files.contains("windows_diagnostics_revoked") ||
                       files.contains("windows_diagnostics_revoked.tmp");
  EXPECT_FALSE(on && revoked);
  if (!on) {
    for (const auto& [name, bytes] : files) {
      EXPECT_TRUE(name.starts_with("windows_diagnostics_revoked")) << name;
    }
  }
  EXPECT_TRUE(world.evidence().setWindowsDiagnosticsEnabled(true, nullptr));
  EXPECT_TRUE(world.Start().getWindowsDiagnosticsEnabled());
  EXPECT_TRUE(world.evidence().setWindowsDiagnosticsEnabled(false, nullptr));
  EXPECT_FALSE(world.Start().getWindowsDiagnosticsEnabled());
}

// A moment at which the machine stops: what its disk holds, and the registry, whose last value may
// not have reached it.
struct Stop {
  MemoryFiles::Disk disk;
  std::map<std::wstring, std::uint32_t> registry;
};

void LeaveEvidence(EvidenceWorld& world) {
  LeaveCrash(world);
  LeaveIncident(world, "20240101T000000Z-a", "clean");
}

void NoteStops(EvidenceWorld& world, const Stop& before, std::vector<Stop>& stops) {
  for (const Fate fate : kFates) {
    const MemoryFiles::Disk disk = world.files.After(fate);
    stops.push_back({disk, world.registry.values});
    stops.push_back({disk, before.registry});
  }
}

TEST(EvidenceSweep, EndsOfAChangeLeaveThePreferenceOnOrOffAndAReturnedOffIsOff) {
  for (const bool enable : {true, false}) {
    EvidenceWorld world(/*captures=*/!enable);
    LeaveEvidence(world);
    const Stop before{world.files.After(Fate::kKept), world.registry.values};
    std::vector<Stop> stops;
    world.Restart(PauseAtEach([&] { NoteStops(world, before, stops); }), [&](Process& evidence) {
      EXPECT_TRUE(evidence.setWindowsDiagnosticsEnabled(enable, nullptr));
    });
    const std::size_t returned = stops.size();
    NoteStops(world, before, stops);
    for (std::size_t stop = 0; stop < stops.size(); ++stop) {
      EvidenceWorld again(/*captures=*/false);
      again.files.Become(stops[stop].disk);
      again.registry.values = stops[stop].registry;
      EXPECT_TRUE(stop < returned || enable || !again.Start().getWindowsDiagnosticsEnabled());
      CheckPreference(again);
      ASSERT_FALSE(HasFailure()) << (enable ? "on, stop " : "off, stop ") << stop;
    }
    std::cout << stops.size() << " ends\n";
  }
}

TEST(EvidenceSweep, LeavesThePreferenceOnOrOffAndNothingBehindWhenOff) {
  const MakePlan plans[] = {[](std::size_t at) { return FailOnce(at); },
                            [](std::size_t at) { return FailFrom(at); }};
  for (const bool enable : {true, false}) {
    for (const MakePlan plan : plans) {
      for (std::size_t operation = 1;; ++operation) {
        SCOPED_TRACE((enable ? "on, operation " : "off, operation ") + std::to_string(operation));
        EvidenceWorld world(/*captures=*/!enable);
        if (!enable) {
          LeaveEvidence(world);
        }
        world.Start();
        const std::size_t counted = world.Suffer(plan(operation), [enable](Process& evidence) {
          evidence.setWindowsDiagnosticsEnabled(enable, nullptr);
        });
        const bool met = counted >= operation;
        CheckPreference(world);
        if (!met || HasFailure()) {
          break;
        }
      }
    }
  }
}

}  // namespace
}  // namespace korvane::test
