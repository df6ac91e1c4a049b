// Two and more processes of one user: who runs the window, and how the others bring it forward.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "scenarios/startup_log.h"
#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

using testing::ElementsAre;

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
  HostProcess first(user, {.environment = kManualFrames});
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

// What of a process's stages isn't in the log for want of the log's mutex: the process says so.
std::vector<std::string> LostStages(const HostProcess& process) {
  std::vector<std::string> lost;
  for (const std::string& line : process.error_lines()) {
    if (line.find(R"("recorder_failure":"log_mutex_timeout")") != std::string::npos) {
      lost.push_back(Json::parse(line)["stage"]);
    }
  }
  return lost;
}

TEST(SecondInstance, IsWhatFiftyStartsAtOnceAreButOne) {
  constexpr std::size_t kStarts = 50;
  const HostUser user;
  std::vector<std::unique_ptr<HostProcess>> starts;
  for (std::size_t i = 0; i < kStarts; ++i) {
    starts.push_back(std::make_unique<HostProcess>(user));
  }
  std::vector<HostProcess*> hosts;
  std::map<std::string, std::size_t> lost;  // stages that no line tells of
  for (const auto& start : starts) {
    if (start->SaysAnything()) {
      hosts.push_back(start.get());
    } else {
      EXPECT_EQ(start->WaitForExit(), 0) << start->Transcript();
    }
  }
  ASSERT_EQ(hosts.size(), 1U);
  hosts[0]->Await({{"window", "foreground"}});
  EXPECT_EQ(hosts[0]->Finish(), 0);

  for (const auto& start : starts) {
    for (const std::string& stage : LostStages(*start)) {
      ++lost[stage];
    }
  }
  const auto log = user.StartupLog();  // whole lines, or the test is red
  const auto told = [&](const char* stage) { return OfStage(log, stage).size() + lost[stage]; };
  for (const char* stage : {"process_start", "mutex"}) {
    EXPECT_EQ(told(stage), kStarts) << stage;
  }
  EXPECT_EQ(told("instance_mutex_wait_timeout"), kStarts - 1);
  // A start looks for two seconds and takes the window as it finds it, ready or not; which it is
  // depends on how busy the machine is.
  const std::size_t posted = told("activate_existing_instance_posted");
  EXPECT_EQ(posted + told("activate_existing_instance_legacy") +
                told("activate_existing_instance_pid_failed") +
                told("activate_existing_instance_window_not_found"),
            kStarts - 1);
  EXPECT_EQ(told("activate_request"), posted);
  EXPECT_EQ(told("show_window"), 1U);
}

TEST(SecondInstance, BecomesTheFirstWhenTheFormerOwnerLeavesOrDiesInTime) {
  for (const bool dies : {false, true}) {
    SCOPED_TRACE(dies ? "dies" : "leaves");
    const HostUser user;
    HostProcess first(user);
    first.Await({{"window", "shown"}});
    HostProcess waiting(user, {.arguments = {"--elevated-restart"}});
    ASSERT_TRUE(
        user.AwaitStartupLog([](const auto& log) { return OfStage(log, "mutex").size() == 2; }));
    if (dies) {
      first.Send({{"abort", true}});
    } else {
      EXPECT_EQ(first.Finish(), 0);
    }
    waiting.Await({{"window", "shown"}});
    EXPECT_EQ(waiting.Finish(), 0);
    EXPECT_EQ(OfStage(user.StartupLog(), "instance_mutex_abandoned").size(), dies ? 1U : 0U);
  }
}

}  // namespace
}  // namespace korvane::test
