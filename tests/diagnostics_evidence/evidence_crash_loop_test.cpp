// Every scenario of the evidence ended before, and in the middle of, each of its changing
// operations, with each fate of what wasn't flushed; the recovery from each such end ended again
// in the same way, or with each of its operations failed.
//
// A process can't see that it is about to end, so one run that stands still at each moment shows
// all its ends. Ends that leave the same disk are one.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <string>

#include "diagnostics_evidence/evidence_scenarios.h"

namespace korvane::test {
namespace {

using Disk = MemoryFiles::Disk;

// What an end leaves, and how it came about.
struct End {
  Disk disk;
  std::string story;
  const End* behind = nullptr;  // the end whose recovery it ended
};

std::string Told(const End& end) {
  EvidenceWorld world;
  world.files.Become(end.disk);
  std::string text = end.story + ", which left\n";
  for (const std::string& id : world.Incidents()) {
    text += "  incidents/" + id + "/\n";
  }
  for (const auto& [name, bytes] : world.Snapshot()) {
    text += "  " + name + ": " + bytes + "\n";
  }
  return end.behind != nullptr ? text + "behind " + Told(*end.behind) : text;
}

class EvidenceCrashLoop : public testing::TestWithParam<EvidenceScenario> {
 protected:
  // A plan that notes what an end at each moment of a run would leave.
  CountingPlan NoteEnds(EvidenceWorld& world, const End* behind, std::vector<End>& found) {
    return PauseAtEach([this, &world, behind, &found] { NoteEnd(world, behind, found); });
  }

  void NoteEnd(EvidenceWorld& world, const End* behind, std::vector<End>& found) {
    for (const Fate fate : kFates) {
      ++ends_;
      const std::string story = "an end of fate " + std::to_string(static_cast<int>(fate));
      NoteDisk({world.files.After(fate), story, behind}, found);
    }
  }

  void NoteDisk(End end, std::vector<End>& found) {
    if (disks_.insert(end.disk).second) {
      found.push_back(std::move(end));
    }
  }

  std::vector<End> EndsOfTheScenario() {
    std::vector<End> found;
    EvidenceWorld world;
    GetParam().leave(world);
    world.Restart(NoteEnds(world, nullptr, found), GetParam().act);
    NoteEnd(world, nullptr, found);
    return found;
  }

  // Checks the recovery from an end. What ends of the recovery would leave is noted if asked for.
  void Recover(const End& end, std::vector<End>* found) {
    EvidenceWorld world;
    world.files.Become(end.disk);
    CheckRecovery(world, GetParam(), /*faulty=*/faults_ != 0,
                  found != nullptr ? NoteEnds(world, &end, *found) : CountingPlan());
    ASSERT_FALSE(HasFailure()) << "from " << Told(end);
  }

  // What is left when each operation of the recovery is failed in turn.
  void RecoverWithFaults(const End& end, std::vector<End>& found) {
    for (std::size_t operation = 1;; ++operation) {
      EvidenceWorld world;
      world.files.Become(end.disk);
      world.Start();
      if (world.Suffer(FailOnce(operation), BootImport) < operation) {
        return;
      }
      ++faults_;
      const std::string story = "a fault of operation " + std::to_string(operation);
      NoteDisk({world.files.After(Fate::kKept), story, &end}, found);
    }
  }

  std::size_t ends_ = 0;
  std::size_t faults_ = 0;
  std::set<Disk> disks_;
};

TEST_P(EvidenceCrashLoop, TwoEndsLoseNothingAndTheTruthIsTold) {
  const std::vector<End> first = EndsOfTheScenario();
  std::vector<End> second;
  for (const End& end : first) {
    ASSERT_NO_FATAL_FAILURE(Recover(end, &second));
  }
  for (const End& end : second) {
    ASSERT_NO_FATAL_FAILURE(Recover(end, nullptr));
  }
  std::cout << GetParam().name << ": " << ends_ << " ends, " << disks_.size() << " disks\n";
}

TEST_P(EvidenceCrashLoop, AnEndAndAFaultLoseNothingAndTheTruthIsTold) {
  const std::vector<End> first = EndsOfTheScenario();
  std::vector<End> second;
  for (const End& end : first) {
    RecoverWithFaults(end, second);
  }
  for (const End& end : second) {
    ASSERT_NO_FATAL_FAILURE(Recover(end, nullptr));
  }
  std::cout << GetParam().name << ": " << ends_ << " ends, " << faults_ << " faults behind them, "
            << disks_.size() << " disks\n";
}

INSTANTIATE_TEST_SUITE_P(Scenarios, EvidenceCrashLoop, testing::ValuesIn(EvidenceScenarios()),
                         [](const auto& scenario) {
                           std::string name = scenario.param.name;
                           std::ranges::replace(name, ' ', '_');
                           return name;
                         });

}  // namespace
}  // namespace korvane::test
