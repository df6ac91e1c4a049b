// Messages of the system to the window, and their place before and behind the engine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenarios/startup_log.h"
#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

constexpr int kPowerBroadcast = 0x218;
constexpr int kDisplayChange = 0x7E;
constexpr int kDpiChanged = 0x2E0;
constexpr int kWtsSessionChange = 0x2B1;
constexpr int kSettingChange = 0x1A;
constexpr int kFontChange = 0x1D;
constexpr int kVpnDispatch = 0x8001;

class WindowMessage : public testing::Test {
 protected:
  void Post(Json message) { host_.Send({{"window", std::move(message)}}); }

  HostUser user_;
  HostProcess host_{user_};
};

TEST_F(WindowMessage, OfTheSystemIsRecorded) {
  host_.Await({{"window", "shown"}});
  const auto sampled = OfStage(user_.StartupLog(), "session_facts").size();
  Post({{"message", kPowerBroadcast}, {"wparam", 4}});
  Post({{"message", kDisplayChange}, {"wparam", 32}, {"lparam", (1080 << 16) | 1920}});
  Post({{"message", kDpiChanged}, {"wparam", (144 << 16) | 144}, {"rect", {0, 0, 1920, 1200}}});
  Post({{"message", kSettingChange}, {"text", "ImmersiveColorSet"}});
  Post({{"message", kSettingChange}});
  Post({{"message", kWtsSessionChange}, {"wparam", 7}});
  Post({{"message", kFontChange}});
  host_.Await({{"fonts", "reloaded"}});
  ASSERT_TRUE(user_.AwaitStartupLog(
      [&](const auto& log) { return OfStage(log, "session_facts").size() > sampled; }));
  EXPECT_EQ(host_.Finish(), 0);

  const auto log = user_.StartupLog();
  EXPECT_EQ(OfStage(log, "WM_POWERBROADCAST").at(0)["code"], 4);
  const std::pair<const char*, Json> events[] = {
      {"WM_DISPLAYCHANGE", {{"code", 32}, {"width", 1920}, {"height", 1080}}},
      {"WM_DPICHANGED", {{"code", (144 << 16) | 144}, {"dpi_x", 144}, {"dpi_y", 144}}},
      {"WM_WTSSESSION_CHANGE", {{"code", 7}}},
  };
  for (const auto& [stage, expected] : events) {
    const Json told = OfStage(log, stage).at(0)["last_display_event"];
    EXPECT_TRUE(Matches(told, expected)) << told;
  }
}

TEST_F(WindowMessage, IsGivenToTheEngineBeforeTheHostActsOnIt) {
  host_.Await({{"window", "shown"}});
  host_.Send({{"engine", {{"consume", {kVpnDispatch}}}}});
  host_.Call("refreshVPNStatus");
  host_.Await({{"engine_consumed", kVpnDispatch}});
  EXPECT_TRUE(host_.Matching({{"method", "onVPNStateChanged"}}).empty());
  host_.Send({{"engine", {{"consume", Json::array()}}}});
  host_.Call("refreshVPNStatus");
  host_.Await({{"method", "onVPNStateChanged"}});
  host_.Await({{"method", "onVPNStateChanged"}});
}

}  // namespace
}  // namespace korvane::test
