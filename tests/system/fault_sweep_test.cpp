// The configuration store and the takeover with every operation of the platform failed in turn, and
// the store's file damaged in every place.
#include "support/fault_sweep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_machine.h"
#include "system/elevation_takeover.h"
#include "system/vpn_config_store.h"

namespace korvane {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::StartsWith;

const std::string kOld = R"({"log":{},"inbounds":[],"outbounds":["old"]})";
const std::string kNew = R"({"log":{},"inbounds":[],"outbounds":["newer than that"]})";

test::FakeMachine& Machine() { return test::FakeMachine::Get(); }

void PutStored(const std::string& name, const std::string& bytes) {
  platform::Files& files = Machine().files;
  auto file = files.Open(std::filesystem::path(GetVpnConfigPath()).parent_path() / name,
                         platform::OpenMode::kWriteShared);
  ASSERT_TRUE(file);
  ASSERT_TRUE(files.Write(file.value(), bytes));
}

std::string Scrambled(std::string text) {
  ScrambleVpnConfig(text);
  return text;
}

// Without the folder's name the store is another one, below the working folder.
test::CountingPlan ButForTheEnvironment(test::CountingPlan plan) {
  plan.counted = [](const test::Operation& operation) {
    return operation.fallible && operation.name != "Process.EnvironmentVariable";
  };
  return plan;
}

TEST(StoreFaultSweep, ASaveLeavesTheOldTheNewOrNothing) {
  Machine();
  test::SweepFaults("save", 5, [](const test::CountingPlan& plan) {
    EXPECT_TRUE(SaveVpnConfigFile(kOld));
    bool saved = false;
    const bool met =
        test::MeetsFault(ButForTheEnvironment(plan), [&saved] { saved = SaveVpnConfigFile(kNew); });
    const std::string stored = Machine().files.Content("vpn_config.dat").value_or("none");
    // A write that fails behind the truncation isn't looked at; the file is empty then.
    EXPECT_THAT(stored, AnyOf(Scrambled(saved ? kNew : kOld), saved ? "" : Scrambled(kOld)));
    const std::string backup = Machine().files.Content("vpn_config.bak").value_or("none");
    EXPECT_THAT(backup, AnyOf(stored, Scrambled(kOld)));
    EXPECT_EQ(LoadVpnConfigFile(), stored.empty() ? "" : Scrambled(stored));
    return met;
  });
}

TEST(StoreFaultSweep, ALoadGivesTheTextOrNothingAndHarmsNoFile) {
  Machine();
  test::SweepFaults("load", 3, [](const test::CountingPlan& plan) {
    EXPECT_TRUE(SaveVpnConfigFile(kOld));
    EXPECT_TRUE(Machine().files.RemoveFile(GetVpnConfigPath()));
    std::string loaded;
    const bool met =
        test::MeetsFault(ButForTheEnvironment(plan), [&loaded] { loaded = LoadVpnConfigFile(); });
    EXPECT_THAT(loaded, AnyOf(kOld, ""));
    EXPECT_EQ(Machine().files.Content("vpn_config.bak"), Scrambled(kOld));
    EXPECT_EQ(LoadVpnConfigFile(), kOld) << "the next load finds the backup";
    return met;
  });
}

TEST(StoreDamage, ADamagedFileIsRefusedOrReadAndLeftAlone) {
  Machine();
  ASSERT_TRUE(SaveVpnConfigFile(kOld));
  const std::string sound = Scrambled(kOld);
  std::vector<std::string> damaged;
  for (std::size_t length = 0; length < sound.size(); ++length) {
    damaged.push_back(sound.substr(0, length));
  }
  for (std::size_t bit = 0; bit < sound.size() * 8; ++bit) {
    damaged.push_back(sound);
    damaged.back()[bit / 8] = static_cast<char>(sound[bit / 8] ^ (1 << (bit % 8)));
  }
  for (const std::string& bytes : damaged) {
    PutStored("vpn_config.dat", bytes);
    const std::string text = Scrambled(bytes);
    EXPECT_EQ(LoadVpnConfigFile(), ValidateVpnConfig(text) ? text : "");
    EXPECT_EQ(Machine().files.Content("vpn_config.dat"), bytes);
    EXPECT_EQ(Machine().files.Content("vpn_config.bak"), sound);
  }
  EXPECT_TRUE(Machine().errors.lines().empty());
}

// What the calls of one takeover left open or entered.
void ExpectBalanced(const std::vector<std::string>& calls) {
  const auto count = [&calls](const char* beginning) {
    return std::count_if(calls.begin(), calls.end(),
                         [beginning](const auto& call) { return call.starts_with(beginning); });
  };
  EXPECT_LE(count("CloseHandle("),
            count("CreateNamedEvent(") + count("OpenNamedEvent(") + count("LaunchElevated("));
  EXPECT_LE(count("LeaveApartment()"), count("EnterApartment("));
}

TEST(TakeoverFaultSweep, TheParentGoesOnlyWhenTheChildHasSignalled) {
  SetTakeoverMutexRelease([] { Machine().journal.Add("release the mutex"); });
  const auto window = Machine().windows.AddNamed("main");
  test::SweepFaults("takeover, parent", 8, [window](const test::CountingPlan& plan) {
    SetTakeoverWindow(window);
    std::optional<TakeoverResult> result;
    bool met = true;
    try {
      met = test::MeetsFault(plan, [&result] { result = RequestElevatedTakeover(); });
    } catch (const test::ProcessExit& exit) {
      EXPECT_EQ(exit.code, 0U);
    }
    const auto calls = Machine().journal.Take();
    ExpectBalanced(calls);
    const bool waited = std::any_of(calls.begin(), calls.end(), [](const auto& call) {
      return call.starts_with("WaitAny(Request, child, ");
    });
    const bool leaves = !result || *result == TakeoverResult::kHandshake;
    EXPECT_TRUE(waited || !leaves) << "left without a word of the child";
    EXPECT_EQ(std::ranges::count(calls, "release the mutex"), result ? 0 : 1);
    if (result && leaves) {
      EXPECT_THAT(calls, Contains("Post(main, 0x802a, 0, 0)"));
    } else if (result) {
      EXPECT_THAT(calls, Contains(StartsWith("err: [ProxyManager] ")));
    }
    return met;
  });
}

TEST(TakeoverFaultSweep, TheChildGoesOnOrRefuses) {
  Machine();
  test::SweepFaults("takeover, child", 2, [](const test::CountingPlan& plan) {
    bool met = true;
    try {
      met = test::MeetsFault(plan, [] {
        RunTakeoverChildCheck({"--takeover-token=ABCD", "--parent-sid=S-1-5-21-1-2-3-1001"});
      });
    } catch (const test::ProcessExit& exit) {
      EXPECT_EQ(exit.code, kTakeoverRefusalExitCode);
    }
    ExpectBalanced(Machine().journal.Take());
    return met;
  });
}

}  // namespace
}  // namespace korvane
