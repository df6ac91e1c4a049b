#include "launch/launch_decision.h"

#include <gtest/gtest.h>

namespace korvane {
namespace {

using flutter::EncodableMap;

constexpr LaunchFlags kPlain;
constexpr LaunchFlags kRestart{.elevated_restart = true};
constexpr LaunchFlags kTakeover{.takeover_child = true};
constexpr LaunchFlags kBoth{.elevated_restart = true, .takeover_child = true};
constexpr LaunchFlags kShim{.admin_bat_shim = true};

EncodableMap OsError(std::int64_t error) { return {{"os_error", error}}; }
EncodableMap AlreadyExists(bool exists) { return {{"already_exists", exists}}; }

struct Expected {
  LaunchStep step;
  bool owned = false;
  std::uint32_t wait_ms = 0;
  std::string stage;
  EncodableMap fields;
};

void ExpectDecision(const LaunchDecision& decision, const Expected& expected,
                    const std::string& sentence) {
  EXPECT_EQ(decision.step, expected.step) << sentence;
  EXPECT_EQ(decision.owned, expected.owned) << sentence;
  EXPECT_EQ(decision.wait_ms, expected.wait_ms) << sentence;
  EXPECT_EQ(decision.event ? decision.event->stage : "", expected.stage) << sentence;
  EXPECT_EQ(decision.event ? decision.event->fields : EncodableMap(), expected.fields) << sentence;
}

TEST(LaunchDecision, TheCreatedMutexDecidesOrAsksForAWait) {
  struct Row {
    std::string sentence;
    LaunchFlags flags;
    bool has_handle;
    platform::ErrorCode code;
    Expected expected;
  };
  const Row rows[] = {
      {"a new mutex is owned",
       kPlain,
       true,
       0,
       {LaunchStep::kPrimary, true, 0, "mutex", AlreadyExists(false)}},
      {"a restart that meets nobody doesn't wait",
       kRestart,
       true,
       0,
       {LaunchStep::kPrimary, true, 0, "mutex", AlreadyExists(false)}},
      {"any code but the one counts as new",
       kPlain,
       true,
       5,
       {LaunchStep::kPrimary, true, 0, "mutex", AlreadyExists(false)}},
      {"no mutex, and a window all the same",
       kPlain,
       false,
       5,
       {LaunchStep::kPrimary, false, 0, "mutex_create_failed", OsError(5)}},
      {"without a handle its code means nothing else",
       kTakeover,
       false,
       183,
       {LaunchStep::kPrimary, false, 0, "mutex_create_failed", OsError(183)}},
      {"a plain second start waits for nothing, but waits",
       kPlain,
       true,
       183,
       {LaunchStep::kWait, false, 0, "mutex", AlreadyExists(true)}},
      {"so does one from the batch file",
       kShim,
       true,
       183,
       {LaunchStep::kWait, false, 0, "mutex", AlreadyExists(true)}},
      {"a restart gives the former process time",
       kRestart,
       true,
       183,
       {LaunchStep::kWait, false, 6000, "mutex", AlreadyExists(true)}},
      {"a takeover's child more",
       kTakeover,
       true,
       183,
       {LaunchStep::kWait, false, 30000, "mutex", AlreadyExists(true)}},
      {"and the takeover wins",
       kBoth,
       true,
       183,
       {LaunchStep::kWait, false, 30000, "mutex", AlreadyExists(true)}},
  };
  for (const Row& row : rows) {
    ExpectDecision(DecideOnCreatedMutex(row.flags, row.has_handle, row.code), row.expected,
                   row.sentence);
  }
}

TEST(LaunchDecision, TheWaitDecidesForGood) {
  struct Row {
    std::string sentence;
    platform::WaitOutcome outcome;
    Expected expected;
  };
  const Row rows[] = {
      {"released by its owner", {0, 0}, {LaunchStep::kPrimary, true, 0, "", {}}},
      {"left by a dead owner",
       {0x80, 0},
       {LaunchStep::kPrimary, true, 0, "instance_mutex_abandoned", {}}},
      {"still held",
       {0x102, 0},
       {LaunchStep::kSecondInstance, false, 0, "instance_mutex_wait_timeout", {}}},
      {"the wait failed",
       {0xFFFFFFFF, 6},
       {LaunchStep::kSecondInstance, false, 0, "instance_mutex_wait_failed", OsError(6)}},
      {"an answer that nobody knows", {0xC0, 0}, {LaunchStep::kSecondInstance, false, 0, "", {}}},
  };
  for (const Row& row : rows) {
    ExpectDecision(DecideOnWait(row.outcome), row.expected, row.sentence);
  }
}

}  // namespace
}  // namespace korvane
