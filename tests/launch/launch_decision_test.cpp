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
  const Expected owned = {LaunchStep::kPrimary, true, 0, "mutex", AlreadyExists(false)};
  const auto waits = [](std::uint32_t ms) {
    return Expected{LaunchStep::kWait, false, ms, "mutex", AlreadyExists(true)};
  };
  const auto without = [](std::int64_t error) {
    return Expected{LaunchStep::kPrimary, false, 0, "mutex_create_failed", OsError(error)};
  };
  const Row rows[] = {
      {"a new mutex is owned", kPlain, true, 0, owned},
      {"a restart that meets nobody doesn't wait", kRestart, true, 0, owned},
      {"any code but the one counts as new", kPlain, true, 5, owned},
      {"no mutex, and a window all the same", kPlain, false, 5, without(5)},
      {"without a handle its code means nothing else", kTakeover, false, 183, without(183)},
      {"a plain second start waits for nothing, but waits", kPlain, true, 183, waits(0)},
      {"so does one from the batch file", kShim, true, 183, waits(0)},
      {"a restart gives the former process time", kRestart, true, 183, waits(6000)},
      {"a takeover's child more", kTakeover, true, 183, waits(30000)},
      {"and the takeover wins", kBoth, true, 183, waits(30000)},
  };
  for (const Row& row : rows) {
    ExpectDecision(DecideOnCreatedMutex(row.flags, row.has_handle, row.code), row.expected,
                   row.sentence);
  }
}

TEST(LaunchDecision, TheWaitDecidesForGood) {
  struct Row {
    std::string sentence;
    std::uint32_t result;
    bool primary;
    std::string stage;
    EncodableMap fields;
  };
  const Row rows[] = {
      {"released by its owner", 0, true, "", {}},
      {"left by a dead owner", 0x80, true, "instance_mutex_abandoned", {}},
      {"still held", 0x102, false, "instance_mutex_wait_timeout", {}},
      {"the wait failed", 0xFFFFFFFF, false, "instance_mutex_wait_failed", OsError(6)},
      {"an answer that nobody knows", 0xC0, false, "", {}},
  };
  for (const Row& row : rows) {
    const auto step = row.primary ? LaunchStep::kPrimary : LaunchStep::kSecondInstance;
    ExpectDecision(DecideOnWait({row.result, 6}), {step, row.primary, 0, row.stage, row.fields},
                   row.sentence);
  }
}

}  // namespace
}  // namespace korvane
