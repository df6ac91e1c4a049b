#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "vpn/disconnect_path.h"
#include "vpn/operation_scope.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kSinkStaysArmed[] =
    "[DIAG] Keeping the crash-output sink ARMED: an engine close was not confirmed, so a later Go "
    "fatal must still have somewhere to be written";
// Capture is off, so the session has no name.
constexpr char kNoMarker[] =
    "[LibboxLogBuffer] Skipping clean-shutdown marker: engine close failed for session ";

class DisconnectTest : public TunnelTest {
 protected:
  DisconnectTest() { Register(); }

  void Connect(bool proxy_too = true) {
    ASSERT_EQ(Call("loadVPNPreference",
                   EncodableMap{{"config", ProxyConfig("2080")}, {"autoConfigureProxy", proxy_too}})
                  .kind,
              "success");
    journal.Take();
    dart.Heard();
    errors.Clear();
  }
};

TEST_F(DisconnectTest, EngineIsClosedBeforeTheProxyIsCleared) {
  Connect();
  const Answer answer = Call("stopVPN");
  EXPECT_EQ(answer.value, EncodableValue(true));
  EXPECT_FALSE(answer.on_window_thread);
  EXPECT_THAT(journal.Take(),
              ElementsAre("close 1", "crash output ''", "proxy 1 ", "proxy announced"));
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_disconnecting",
                                        "onVPNStateChanged vpn_disconnected"));
  EXPECT_THAT(Lines(), ElementsAre("[ProxyManager] Disabling system proxy",
                                   "[ProxyManager] System proxy disabled"));
  EXPECT_EQ(Call("getStatus").value, EncodableValue("disconnected"));
  EXPECT_EQ(CopyConfigText(), "");
  EXPECT_TRUE(std::filesystem::exists(StoredConfig())) << "the file isn't touched";
}

TEST_F(DisconnectTest, TakesTheStepsThatThereIsCauseFor) {
  EXPECT_EQ(Call("disconnectForNodeSwitching").value, EncodableValue(true));
  EXPECT_THAT(journal.Take(), ElementsAre("crash output ''", "proxy 1 ", "proxy announced"))
      << "nothing running is still a repair";
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_disconnected"));

  Connect(/*proxy_too=*/false);
  Call("stopVPN");
  EXPECT_THAT(journal.Take(), ElementsAre("close 1", "crash output ''"));

  Connect();
  StopBoxInternal(/*disable_proxy=*/false, "reconnect_teardown");
  EXPECT_THAT(dart.Heard(), IsEmpty()) << "a reconnect's teardown says nothing";
  EXPECT_THAT(journal.Take(), ElementsAre("close 2", "crash output ''"));

  Connect();
  vpn_state().engine.singbox_close_service = nullptr;
  Call("stopVPN");
  EXPECT_THAT(journal.Take(), ElementsAre("crash output ''", "proxy 1 ", "proxy announced"));
  EXPECT_EQ(vpn_state().service_id, 0U) << "a core without a close leaves no service behind";
  EXPECT_FALSE(IsVpnConnected());
}

TEST_F(DisconnectTest, TellsItsDecisionsWhileDiagnosticsAreOn) {
  const struct {
    std::function<void()> prepare;
    bool disable_proxy;
    std::vector<std::string> decisions;
  } rows[] = {
      {[] {},
       true,
       {"enter_disableProxy", "service_closed", "proxy_cleanup_begin", "proxy_cleanup_done",
        "authoritative_disconnected"}},
      {[] {},
       false,
       {"enter_reconnect_teardown", "service_closed", "reconnect_teardown_no_broadcast"}},
      {[this] {
         FakeEngine::Get().on_close = [](std::uint64_t) { return 5; };
         proxy.store_error = 5;
       },
       true,
       {"enter_disableProxy", "service_close_failed", "proxy_cleanup_begin", "proxy_cleanup_failed",
        "authoritative_disconnected"}},
  };
  EXPECT_EQ(Call("setWindowsDiagnosticsEnabled", EncodableMap{{"enabled", true}}).value,
            EncodableValue(true));
  for (const auto& row : rows) {
    Connect();
    row.prepare();
    StopBoxInternal(row.disable_proxy, "user_disconnect");
    std::vector<std::string> told = dart.Heard();
    std::erase_if(told, [](const auto& line) { return line.starts_with("onVPNStateChanged"); });
    std::vector<std::string> expected;
    for (const std::string& decision : row.decisions) {
      expected.push_back("onVPNDiagnostic StopBoxInternal " + decision);
    }
    EXPECT_EQ(told, expected);
  }
  EXPECT_THAT(ReadBytes(folder / "Korvane" / "libbox_session.log").value_or(""),
              AllOf(HasSubstr("StopBoxInternal decision=enter_disableProxy is_running=1 svc=3 "
                              "op_depth=1 op_phase=stopping"),
                    EndsWith("is_running=0 svc=0 op_depth=0 op_phase=none\n")));
}

TEST_F(DisconnectTest, RefusedProxyIsAWarning) {
  Connect();
  proxy.store_error = 5;
  EXPECT_EQ(Call("stopVPN").kind, "success");
  EXPECT_THAT(Lines(), ElementsAre("[ProxyManager] Disabling system proxy",
                                   "[WARNING] Failed to disable system proxy"));
}

TEST_F(DisconnectTest, UnconfirmedCloseIsToldLatchedAndForgotten) {
  const struct {
    const char* why;
    std::function<std::int32_t(std::uint64_t)> close;
    const char* engine_error;
    std::vector<std::string> lines;
  } rows[] = {
      {"a code",
       [](std::uint64_t) { return 5; },
       "still busy with 10.0.0.1:80",
       {"[ERROR] singbox_close_service failed (rc=5, threw=no, error='still busy with [ip]')"}},
      {"a code and no text",
       [](std::uint64_t) { return -3; },
       nullptr,
       {"[ERROR] singbox_close_service failed (rc=-3, threw=no, error='')"}},
      {"a throw",
       [](std::uint64_t) -> std::int32_t { throw std::runtime_error("gone"); },
       nullptr,
       {"[ERROR] Exception in singbox_close_service: gone",
        "[ERROR] singbox_close_service failed (rc=-1, threw=yes, error='gone')"}},
      {"a throw of no standard kind",
       [](std::uint64_t) -> std::int32_t { throw 1; },
       nullptr,
       {"[ERROR] Exception in singbox_close_service: ",
        "[ERROR] singbox_close_service failed (rc=-1, threw=yes, error='')"}},
  };
  for (const auto& row : rows) {
    FakeEngine& engine = FakeEngine::Get();
    engine.on_close = nullptr;
    Connect();
    engine.on_close = row.close;
    engine.last_error = row.engine_error;
    EXPECT_EQ(Call("stopVPN").kind, "success") << row.why;
    std::vector<std::string> expected = row.lines;
    expected.insert(expected.end(),
                    {kNoMarker, kSinkStaysArmed, "[ProxyManager] Disabling system proxy",
                     "[ProxyManager] System proxy disabled"});
    EXPECT_EQ(Lines(), expected) << row.why;
    EXPECT_FALSE(vpn_state().is_running) << row.why;
    EXPECT_EQ(vpn_state().service_id, 0U) << row.why;
    EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_disconnecting",
                                          "onVPNStateChanged vpn_disconnected"))
        << row.why;
  }
}

TEST_F(DisconnectTest, LatchOutlivesAConfirmedClose) {
  FakeEngine& engine = FakeEngine::Get();
  Connect();
  engine.on_close = [](std::uint64_t) { return 5; };
  Call("stopVPN");
  engine.on_close = nullptr;
  Connect();
  Call("stopVPN");
  EXPECT_THAT(Lines(), ElementsAre(kSinkStaysArmed, "[ProxyManager] Disabling system proxy",
                                   "[ProxyManager] System proxy disabled"))
      << "the close itself was confirmed, so nothing is said of the marker";
}

TEST_F(DisconnectTest, CrashSinkThatStaysArmedIsTold) {
  Connect();
  FakeEngine& engine = FakeEngine::Get();
  engine.last_error = "locked";
  engine.on_set_crash_output = [](const std::string&) { return 3; };
  Call("stopVPN");
  EXPECT_EQ(Lines().front(),
            "[DIAG] crash output not disarmed (rc=3, error='locked'); the previous session's "
            "crash-output file may stay locked");
  engine.on_set_crash_output = [](const std::string&) -> std::int32_t {
    throw std::runtime_error("no sink");
  };
  Call("stopVPN");
  const auto lines = Lines();
  EXPECT_EQ(lines.at(0), "[DIAG] Exception disarming crash output: no sink");
  EXPECT_EQ(lines.at(1),
            "[DIAG] crash output not disarmed (rc=1, error='locked'); the previous session's "
            "crash-output file may stay locked");
  vpn_state().engine.singbox_set_crash_output = nullptr;
  journal.Take();
  Call("stopVPN");
  EXPECT_THAT(journal.Take(), ElementsAre("proxy 1 ", "proxy announced"));
}

TEST_F(DisconnectTest, StateWordFollowsServiceThenScopeThenPhase) {
  VpnState& vpn = vpn_state();
  const struct {
    const char* why;
    bool is_running;
    std::uint64_t service_id;
    std::int32_t depth, phase;
    std::string word;
  } rows[] = {
      {"nothing", false, 0, 0, 0, "vpn_disconnected"},
      {"running without a service", true, 0, 0, 0, "vpn_disconnected"},
      {"a service that isn't running", false, 4, 0, 0, "vpn_disconnected"},
      {"running wins over any scope", true, 4, 2, 2, "vpn_connected"},
      {"starting", false, 0, 1, 1, "vpn_connecting"},
      {"stopping", true, 0, 1, 2, "vpn_disconnecting"},
      {"between the two writes of a scope", false, 0, 1, 0, "vpn_disconnecting"},
  };
  for (const auto& row : rows) {
    vpn.is_running = row.is_running;
    vpn.service_id = row.service_id;
    vpn.op_depth = row.depth;
    vpn.op_phase = row.phase;
    EXPECT_EQ(CurrentVpnState(), row.word) << row.why;
  }
}

TEST_F(DisconnectTest, InnerScopeKeepsThePhaseAndClosesOnce) {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  OperationScope outer(vpn, kPhaseStarting);
  {
    OperationScope inner(vpn, kPhaseStopping);
    EXPECT_EQ(vpn.op_depth, 2);
    EXPECT_EQ(vpn.op_phase, kPhaseStarting);
    inner.Close();
    inner.Close();
    EXPECT_EQ(vpn.op_depth, 1);
  }
  EXPECT_EQ(vpn.op_depth, 1);
  EXPECT_EQ(vpn.op_phase, kPhaseStarting);
  outer.Close();
  EXPECT_EQ(vpn.op_phase, kPhaseNone);
}

}  // namespace
}  // namespace korvane::test
