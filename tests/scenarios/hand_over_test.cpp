// The ends of a process that are no close of its window: the system goes down, or an elevated copy
// takes over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "scenarios/sessions.h"
#include "scenarios/startup_log.h"

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

constexpr int kQueryEndSession = 0x0011;
constexpr int kEndSession = 0x0016;

Json WindowMessage(int message, int parameter) {
  return {{"window", {{"message", message}, {"wparam", parameter}}}};
}

// Waits until the window has taken everything that was posted so far: a message behind it that the
// startup log tells of.
void AwaitTheWindow(HostProcess& host, const HostUser& user) {
  constexpr int kPowerBroadcast = 0x0218;
  const auto messages = [](const std::vector<Json>& log) {
    return OfStage(log, "WM_POWERBROADCAST").size();
  };
  const auto before = messages(user.StartupLog());
  host.Send(WindowMessage(kPowerBroadcast, 10));
  EXPECT_TRUE(
      user.AwaitStartupLog([&](const std::vector<Json>& log) { return messages(log) > before; }));
}

Json Record(const HostUser& user) {
  std::ifstream file(user.korvane_folder() / "libbox_shutdown_record.json", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.empty() ? Json::object() : Json::parse(text);
}

bool HasMarker(const HostUser& user) {
  return fs::exists(user.korvane_folder() / "os_shutdown_marker");
}

TEST(SystemShutdown, LeavesItsMarkerAndIntentUnlessItIsCancelled) {
  const HostUser user;
  HostProcess host(user);
  SwitchOn(host);
  host.Send(WindowMessage(kQueryEndSession, 0));
  AwaitTheWindow(host, user);
  EXPECT_TRUE(HasMarker(user));
  EXPECT_EQ(Record(user).value("process_exit_reason", ""), "os_shutdown");
  host.Send(WindowMessage(kEndSession, 0));
  AwaitTheWindow(host, user);
  EXPECT_FALSE(HasMarker(user));
  EXPECT_EQ(Record(user).value("process_exit_reason", ""), "");

  host.Send(WindowMessage(kQueryEndSession, 0));
  host.Send(WindowMessage(kEndSession, 1));
  AwaitTheWindow(host, user);
  EXPECT_TRUE(HasMarker(user));
  EXPECT_EQ(Record(user).value("process_exit_reason", ""), "os_shutdown");
  EXPECT_EQ(Record(user).value("process_exit_state", ""), "requested");
  host.Kill();
}

TEST(Takeover, MakesTheElevatedCopyTheOnlyHost) {
  const HostUser user;
  HostProcess host(user);
  host.Await({{"window", "shown"}});
  SwitchOn(host);
  const Json answer = host.Call("requestAdminPrivileges");
  EXPECT_EQ(answer["success"], true) << host.Transcript();
  EXPECT_EQ(answer["thread"], "worker");
  EXPECT_TRUE(user.AwaitStartupLog([](const std::vector<Json>& log) {
    return OfStage(log, "show_window").size() == 2;
  })) << host.Transcript();
  EXPECT_TRUE(HasMarker(user));
  EXPECT_EQ(Record(user).value("process_exit_reason", ""), "elevation_handoff");
  const auto log = user.StartupLog();
  const auto starts = OfStage(log, "process_start");
  ASSERT_EQ(starts.size(), 2U);
  EXPECT_NE(starts[0]["run_id"], starts[1]["run_id"]);
  // The copy owns the mutex, whether it came while the parent had it or behind it.
  EXPECT_EQ(OfStage(log, "mutex").size(), 2U);
  EXPECT_TRUE(OfStage(log, "instance_mutex_wait_timeout").empty());
  EXPECT_EQ(host.Matching({{"window", "destroyed"}}).size(), 1U) << "the parent's";
  host.EndInput();
  EXPECT_EQ(host.WaitForExit(), 0);
}

}  // namespace
}  // namespace korvane::test
