// Two and more processes of one user: who runs the window, and how the others bring it forward.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "scenarios/startup_log.h"
#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr int kSysCommand = 0x0112;
constexpr int kMinimize = 0xF020;

TEST(SecondInstance, BringsTheFirstForwardAndLeavesWithZero) {
  const HostUser user;
  HostProcess first(user);
  first.Await({{"window", "shown"}});
  first.Send({{"window", {{"message", kSysCommand}, {"wparam", kMinimize}}}});
  first.Call("isRunning");  // the message was taken before it

  HostProcess second(user);
  EXPECT_EQ(second.WaitForExit(), 0);
  EXPECT_TRUE(second.lines().empty()) << second.Transcript();
  first.Await({{"window", "restored"}});
  first.Await({{"window", "foreground"}});
  EXPECT_EQ(first.Finish(), 0);

  const auto log = user.StartupLog();
  const auto request = OfStage(log, "activate_request");
  const auto posted = OfStage(log, "activate_existing_instance_posted");
  ASSERT_EQ(request.size(), 1U);
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(request[0]["from_pid"], posted[0]["pid"]);
  EXPECT_EQ(request[0]["pid"], posted[0]["target_pid"]);
  EXPECT_EQ(request[0]["action"], "restore");
  EXPECT_EQ(OfStage(log, "activation_shown").size(), 1U);
  EXPECT_THAT(StagesOf(log, posted[0]["run_id"]),
              ElementsAre("process_start", "session_facts", "mutex", "instance_mutex_wait_timeout",
                          "activate_existing_instance_posted"));
}

TEST(SecondInstance, IsLatchedUntilTheFirstFrame) {
  const HostUser user;
  HostProcess first(user, {.manual_frames = true});
  first.Call("isRunning");
  HostProcess second(user, {.arguments = {"--post-install-restart"}});
  EXPECT_EQ(second.WaitForExit(), 0);
  first.Call("isRunning");  // the request was taken before it
  EXPECT_TRUE(first.Matching({{"window", "shown"}}).empty());
  first.Send({{"frame", true}});
  first.Await({{"window", "foreground"}});
  EXPECT_EQ(first.Finish(), 0);

  const auto log = user.StartupLog();
  const auto request = OfStage(log, "activate_request");
  ASSERT_EQ(request.size(), 1U);
  EXPECT_EQ(request[0]["action"], "latched");
  EXPECT_EQ(request[0]["first_raster"], false);
  EXPECT_TRUE(OfStage(log, "activation_shown").empty());
  EXPECT_EQ(OfStage(log, "show_window").size(), 1U);
  EXPECT_EQ(OfStage(log, "first_raster_callback").at(0)["activated_before_first_raster"], true);
}

TEST(SecondInstance, IsLeftByOneOfTwentyStartsAtOnce) {
  const HostUser user;
  std::vector<std::unique_ptr<HostProcess>> starts;
  for (int i = 0; i < 20; ++i) {
    starts.push_back(std::make_unique<HostProcess>(user));
  }
  int windows = 0;
  HostProcess* primary = nullptr;
  for (const auto& start : starts) {
    if (start->SaysAnything()) {
      ++windows;
      primary = start.get();
    } else {
      EXPECT_EQ(start->WaitForExit(), 0);
    }
  }
  ASSERT_EQ(windows, 1);
  EXPECT_EQ(primary->Finish(), 0);
  const auto log = user.StartupLog();
  EXPECT_EQ(OfStage(log, "process_start").size(), 20U);
  EXPECT_EQ(OfStage(log, "show_window").size(), 1U);
}

TEST(SecondInstance, TakesOverFromAFormerOwnerThatDied) {
  const HostUser user;
  HostProcess first(user);
  first.Await({{"window", "shown"}});
  HostProcess waiting(user, {.arguments = {"--elevated-restart"}});
  ASSERT_TRUE(
      user.AwaitStartupLog([](const auto& log) { return OfStage(log, "mutex").size() == 2; }));
  first.Send({{"abort", true}});
  waiting.Await({{"window", "shown"}});
  EXPECT_EQ(waiting.Finish(), 0);
  EXPECT_EQ(OfStage(user.StartupLog(), "instance_mutex_abandoned").size(), 1U);
}

TEST(SecondInstance, BecomesTheFirstWhenTheFormerOwnerLeavesInTime) {
  const HostUser user;
  HostProcess first(user);
  first.Await({{"window", "shown"}});
  HostProcess waiting(user, {.arguments = {"--elevated-restart"}});
  ASSERT_TRUE(
      user.AwaitStartupLog([](const auto& log) { return OfStage(log, "mutex").size() == 2; }));
  EXPECT_EQ(first.Finish(), 0);
  waiting.Await({{"window", "shown"}});
  EXPECT_EQ(waiting.Finish(), 0);
  const auto log = user.StartupLog();
  EXPECT_THAT(StagesOf(log, OfStage(log, "mutex").at(1)["run_id"]),
              Not(Contains("instance_mutex_abandoned")));
}

}  // namespace
}  // namespace korvane::test
