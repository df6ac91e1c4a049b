#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "support/fake_kernel_objects.h"
#include "support/fake_window_system.h"
#include "support/vpn_methods.h"
#include "system/elevation_takeover.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kVpnChannel[] = "com.sundrelak.korvane/vpn";

class MethodChannelTest : public TunnelTest {
 protected:
  MethodChannelTest() { Register(); }
};

EncodableValue Map(const char* key, EncodableValue value) {
  return EncodableMap{{key, std::move(value)}};
}

TEST_F(MethodChannelTest, EachMethodAnswersAsTheTableSays) {
  const EncodableValue null;
  const EncodableValue yes(true);
  const EncodableValue no(false);
  const struct {
    const char* method;
    EncodableValue arguments;
    EncodableValue success;
    bool on_window_thread;
  } rows[] = {
      {"isRunning", null, no, true},
      {"getStatus", null, "disconnected", true},
      {"getCoreVersion", null, "1.11.0", true},
      {"refreshVPNStatus", null, yes, true},
      {"isobtainedNecessaryPermissions", null, yes, true},
      {"enableAutoReconnect", null, yes, true},
      {"disableAutoReconnect", yes, yes, true},
      {"getOnDemandStatus", null, no, true},
      {"isBatteryOptimizationIgnored", null, yes, true},
      {"requestBatteryOptimizationExemption", null, yes, true},
      {"isAlwaysOnVpnEnabled", null, no, true},
      {"openVpnSettings", null, yes, true},
      {"restoreUserAutoReconnectPreference", no, yes, true},
      {"restoreUserAutoReconnectPreference", yes, yes, true},
      {"checkForStuckState", null, no, true},
      {"getWindowsDiagnosticsEnabled", null, no, true},
      {"getWindowsDiagnosticsFailure", null, "", true},
      {"checkForCrashLogs", null, null, true},
      {"importPendingIncidents", null, no, true},
      {"acknowledgeIncident", EncodableMap{{"incidentId", "x"}, {"reimportCount", std::int32_t{0}}},
       no, true},
      {"recordShutdownIntent", Map("reason", "tray_quit"), yes, true},
      {"recordShutdownIntent", Map("reason", "no such reason"), no, true},
      {"clearShutdownIntent", Map("reason", "tray_quit"), yes, true},
      {"getLibboxLogPath", null, "", true},
      {"getAppGroupDirectory", null, "%APPDATA%\\Korvane", true},
      {"checkAdminPrivileges", null, no, true},
      {"isElevatedAutostartEnabled", null, yes, true},
      {"clearSystemProxy", null, yes, false},
      {"stopVPN", null, yes, false},
      {"disconnectForNodeSwitching", EncodableValue("ignored"), yes, false},
  };
  for (const auto& row : rows) {
    const Answer answer = Call(row.method, row.arguments);
    EXPECT_EQ(answer.kind, "success") << row.method;
    EXPECT_EQ(answer.value, row.success) << row.method;
    EXPECT_EQ(answer.on_window_thread, row.on_window_thread) << row.method;
  }
}

TEST_F(MethodChannelTest, WrongArgumentsAreRefusedByExactType) {
  const EncodableValue null;
  const EncodableValue number(std::int32_t{1});
  const struct {
    const char* method;
    EncodableValue arguments;
    const char* code;
    const char* message;
  } rows[] = {
      {"loadVPNPreference", null, "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", EncodableMap{}, "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", Map("config", number), "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", Map("config", ""), "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", EncodableList{}, "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", EncodableList{number}, "INVALID_ARGUMENTS", "Config string required"},
      {"loadVPNPreference", EncodableValue("text"), "INVALID_ARGUMENTS", "Config string required"},
      {"connectForNodeSwitching", Map("config", "x"), "INVALID_ARGUMENTS",
       "Config string required"},
      {"restoreUserAutoReconnectPreference", null, "INVALID_ARGUMENTS",
       "Missing enabled parameter"},
      {"restoreUserAutoReconnectPreference", number, "INVALID_ARGUMENTS",
       "Missing enabled parameter"},
      {"setWindowsDiagnosticsEnabled", null, "INVALID_ARGUMENT", "Expected an enabled boolean"},
      {"setWindowsDiagnosticsEnabled", Map("enabled", number), "INVALID_ARGUMENT",
       "Expected an enabled boolean"},
      {"acknowledgeIncident", EncodableMap{{"incidentId", ""}, {"reimportCount", number}},
       "INVALID_ARGUMENTS", "incidentId and reimportCount are required"},
      {"acknowledgeIncident", EncodableMap{{"incidentId", "x"}, {"reimportCount", std::int64_t{1}}},
       "INVALID_ARGUMENTS", "incidentId and reimportCount are required"},
      {"recordShutdownIntent", Map("reason", ""), "INVALID_ARGUMENTS", "reason is required"},
      {"clearShutdownIntent", null, "INVALID_ARGUMENTS", "reason is required"},
      {"enableElevatedAutostart", null, "ELEVATION_REQUIRED", "Administrator privileges required"},
      {"disableElevatedAutostart", null, "ELEVATION_REQUIRED", "Administrator privileges required"},
      {"getAutoSelectorInfo", null, "VPN_NOT_CONNECTED",
       "VPN must be connected to get auto selector info"},
      {"performUrlTest", null, "INVALID_ARGUMENTS", "Arguments required for performUrlTest"},
      {"performUrlTest", number, "INVALID_ARGUMENTS", "Arguments required for performUrlTest"},
      {"performUrlTest", EncodableMap{}, "VPN_NOT_CONNECTED",
       "VPN must be connected to perform URL test"},
  };
  vpn_state().autoConfigureProxy = false;
  for (const auto& row : rows) {
    const Answer answer = Call(row.method, row.arguments);
    EXPECT_EQ(answer.code, row.code) << row.method;
    EXPECT_EQ(answer.message, row.message) << row.method;
    EXPECT_FALSE(answer.has_details) << row.method;
    EXPECT_TRUE(answer.on_window_thread) << row.method;
  }
  EXPECT_FALSE(vpn_state().autoConfigureProxy) << "a refused call changes nothing";
  EXPECT_THAT(dart.Heard(), IsEmpty());
}

TEST_F(MethodChannelTest, ConfigurationMayComeAsAListAndTheSwitchDefaultsToOn) {
  vpn_state().autoConfigureProxy = false;
  EXPECT_EQ(Call("loadVPNPreference", EncodableList{ProxyConfig()}).kind, "success");
  EXPECT_TRUE(vpn_state().autoConfigureProxy);
  Call("loadVPNPreference", EncodableMap{{"config", ProxyConfig()}, {"autoConfigureProxy", false}});
  EXPECT_FALSE(vpn_state().autoConfigureProxy);
  Call("loadVPNPreference", EncodableMap{{"config", ProxyConfig()}, {"autoConfigureProxy", "no"}});
  EXPECT_TRUE(vpn_state().autoConfigureProxy) << "another type counts as absent";
}

TEST_F(MethodChannelTest, UnknownMethodsAndBrokenMessagesGetTheEmptyReply) {
  EXPECT_EQ(Call("noSuchMethod").kind, "not implemented");
  EXPECT_EQ(Call("isrunning").kind, "not implemented");
  errors.Clear();
  const int cut = dart.DeliverBytes(kVpnChannel, {7, 9, 'i', 's'});
  EXPECT_EQ(dart.Await(cut).kind, "not implemented");
  EXPECT_TRUE(errors.Has(
      "Unable to construct method call from message on channel com.sundrelak.korvane/vpn"));
}

TEST_F(MethodChannelTest, AutostartGoesThroughTheTaskScheduler) {
  elevation.administrator = true;
  schtasks.results = {0};
  EXPECT_EQ(Call("enableElevatedAutostart").value, EncodableValue(true));
  schtasks.results = {1};
  const Answer refused = Call("enableElevatedAutostart");
  EXPECT_EQ(refused.code + ": " + refused.message,
            "AUTOSTART_FAILED: Failed to enable elevated autostart");
  schtasks.results = {0, 1};
  EXPECT_EQ(Call("disableElevatedAutostart").message, "Failed to disable elevated autostart");
}

TEST_F(MethodChannelTest, ElevationIsAnsweredAsItEnded) {
  FakeKernelObjects objects(journal);
  FakeWindowSystem windows(journal);
  platform::Os os = platform::os();
  os.kernel_objects = &objects;
  os.windows = &windows;
  const platform::ScopedOs in_force(os);
  SetTakeoverWindow(windows.AddNamed("main"));
  const platform::WaitOutcome signalled{0, 0};
  const platform::WaitOutcome ended{1, 0};
  const platform::WaitOutcome late{platform::kWaitTimeout, 0};
  const struct {
    platform::ErrorCode launch_error;
    platform::WaitOutcome outcome;
    std::uint32_t exit_code;
    const char* answer;
  } rows[] = {
      {platform::kErrorCancelled, {}, 0, "USER_CANCELLED: Elevation cancelled by user"},
      {5, {}, 0, "ELEVATION_FAILED: Failed to launch elevated process"},
      {0, late, 0, "TAKEOVER_TIMEOUT: Timed out waiting for elevated process"},
      {0, ended, 3, "CHILD_DIED: Elevated process exited before handshake"},
      {0, ended, kTakeoverRefusalExitCode,
       "ELEVATED_AS_DIFFERENT_USER: Elevation completed under a different user"},
      {0, signalled, 0, ": "},
  };
  for (const auto& row : rows) {
    elevation.launch_error = row.launch_error;
    elevation.exit_code = row.exit_code;
    objects.wait_any_outcome = row.outcome;
    const Answer answer = Call("requestAdminPrivileges");
    EXPECT_EQ(answer.code + ": " + answer.message, row.answer);
    EXPECT_EQ(answer.kind, answer.code.empty() ? "success" : "error") << row.answer;
    EXPECT_FALSE(answer.on_window_thread) << row.answer;
  }
}

// Every method with every kind of argument: one reply each, whatever happens.
TEST_F(MethodChannelTest, AnythingSentIsAnsweredExactlyOnce) {
  const std::vector<EncodableValue> values = {
      {},
      true,
      std::int32_t{-1},
      std::int64_t{1} << 40,
      2.5,
      "text",
      std::string("\xFF\xFE"),
      std::vector<std::uint8_t>{1},
      std::vector<std::int32_t>{1},
      std::vector<std::int64_t>{1},
      std::vector<double>{1.0},
      EncodableList{"x"},
      std::vector<float>{1.0F},
      EncodableMap{{std::int32_t{1}, "key of another kind"}},
      EncodableMap{{"config", std::int64_t{1}},
                   {"reason", true},
                   {"enabled", "yes"},
                   {"incidentId", std::int32_t{3}},
                   {"timeout", 1.5},
                   {"selectorTag", false}},
  };
  std::vector<std::string> methods = LocalVpnMethods();
  methods.insert(methods.end(), {"requestAdminPrivileges", "isElevatedAutostartEnabled",
                                 "enableElevatedAutostart", "disableElevatedAutostart", "unknown"});
  std::vector<int> deliveries;
  for (const std::string& method : methods) {
    for (const EncodableValue& value : values) {
      deliveries.push_back(dart.Deliver(kVpnChannel, method, value));
    }
  }
  for (const int delivery : deliveries) {
    dart.Await(delivery);
    EXPECT_EQ(dart.Replies(delivery), 1);
  }
  EXPECT_FALSE(errors.HasText("Warning: Failed to respond"));
  EXPECT_FALSE(errors.HasText("Only one of Success"));
}

// Two hundred connects and stops from many threads: each is answered once, nothing overlaps inside
// the engine, the last word is the truth, and the journal watches the order of each stop.
TEST_F(MethodChannelTest, ConnectsAndStopsFromManyThreadsEndInTheTruth) {
  FakeEngine& engine = FakeEngine::Get();
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  std::atomic<int> running{0};
  const auto alone = [&](int change) {
    overlaps += inside++ != 0 ? 1 : 0;
    running += change;
    --inside;
    return 0;
  };
  engine.on_start = [&](std::uint64_t) { return alone(1); };
  engine.on_close = [&](std::uint64_t) { return alone(-1); };

  constexpr int kThreads = 8;
  constexpr int kCallsEach = 25;
  std::vector<std::thread> threads;
  std::vector<std::vector<int>> deliveries(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int call = 0; call < kCallsEach; ++call) {
        const bool connect = (thread + call) % 2 == 0;
        deliveries[static_cast<std::size_t>(thread)].push_back(
            connect ? dart.Deliver(kVpnChannel, "connectForNodeSwitching",
                                   EncodableValue(ProxyConfig()))
                    : dart.Deliver(kVpnChannel, "disconnectForNodeSwitching", {}));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& of_thread : deliveries) {
    for (const int delivery : of_thread) {
      EXPECT_EQ(dart.Await(delivery).value, EncodableValue(true));
      EXPECT_EQ(dart.Replies(delivery), 1);
    }
  }
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(running, IsVpnConnected() ? 1 : 0);
  EXPECT_EQ(vpn_state().op_depth, 0);
  EXPECT_EQ(vpn_state().op_phase, kPhaseNone);
  dart.Heard();
  Call("refreshVPNStatus");
  EXPECT_THAT(dart.Heard(), ElementsAre(running == 1 ? "onVPNStateChanged vpn_connected"
                                                     : "onVPNStateChanged vpn_disconnected"));
}

}  // namespace
}  // namespace korvane::test
