#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/os.h"
#include "system/vpn_config_store.h"
#include "vpn/connect_path.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConnectTest : public TunnelTest {
 protected:
  ConnectTest() { Register(); }

  Answer Load(const std::string& config, bool proxy_too = true) {
    return Call("loadVPNPreference",
                EncodableMap{{"config", config}, {"autoConfigureProxy", proxy_too}});
  }
  static std::string RunningConfig() { return CopyConfigText(); }
};

TEST_F(ConnectTest, ProxyModeRunsEngineThenProxyThenSaysConnected) {
  errors.Clear();
  const Answer answer = Load(ProxyConfig("2080"));
  EXPECT_EQ(answer.kind, "success");
  EXPECT_EQ(answer.value, EncodableValue(true));
  EXPECT_FALSE(answer.on_window_thread);
  EXPECT_THAT(journal.Take(), ElementsAre("crash output ''", "new", "start 1",
                                          "proxy 2 127.0.0.1:2080", "proxy announced"));
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connected"));
  EXPECT_THAT(Lines(), ElementsAre("[INFO] loadVPNPreference: config length=" +
                                       std::to_string(ProxyConfig("2080").size()) +
                                       ", autoConfigureProxy=true",
                                   "[ProxyManager] Enabling system proxy: 127.0.0.1:2080",
                                   "[ProxyManager] System proxy enabled with LAN bypass list"));
  EXPECT_EQ(RunningConfig(), ProxyConfig("2080"));
  EXPECT_EQ(LoadVpnConfigFile(), ProxyConfig("2080"));
  EXPECT_EQ(Call("isRunning").value, EncodableValue(true));
  EXPECT_EQ(Call("getStatus").value, EncodableValue("connected"));
  EXPECT_THAT(clock.waits(), IsEmpty());
}

TEST_F(ConnectTest, SecondConnectClosesTheFirstAndLeavesTheProxyAlone) {
  Load(ProxyConfig("2080"));
  journal.Take();
  Load(ProxyConfig("2081"), /*proxy_too=*/false);
  EXPECT_THAT(journal.Take(), ElementsAre("close 1", "crash output ''", "new", "start 2"));
  EXPECT_THAT(dart.Heard(),
              ElementsAre("onVPNStateChanged vpn_connected", "onVPNStateChanged vpn_connected"));
}

TEST_F(ConnectTest, ConnectFromTheFileSaysSoFirst) {
  ASSERT_TRUE(SaveVpnConfigFile(ProxyConfig()));
  EXPECT_EQ(Call("doConnectVpn").value, EncodableValue(true));
  EXPECT_THAT(dart.Heard(),
              ElementsAre("onVPNStateChanged vpn_connecting", "onVPNStateChanged vpn_connected"));
}

TEST_F(ConnectTest, ConnectWithoutAFileTellsNoConfigAndNoError) {
  errors.Clear();
  const Answer answer = Call("doConnectVpn");
  EXPECT_EQ(answer.code, "NO_CONFIG");
  EXPECT_EQ(answer.message, "No VPN configuration found");
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connecting",
                                        "onVPNStateChanged vpn_disconnected"));
  EXPECT_THAT(Lines(), ElementsAre("[ERROR] LoadVPNPreference: Config is empty after loading!",
                                   "[ERROR] doConnectVpn: LoadVPNPreference failed"));
}

TEST_F(ConnectTest, ProxyStepGoesByModeMarkerAndSwitch) {
  const struct {
    const char* why;
    std::string config;
    bool switched_on;
    std::string expected;
  } rows[] = {
      {"switched off", ProxyConfig(), false, ""},
      {"no port in the text", R"({"log":1,"inbounds":"tag":"mixed-in","outbounds":1})", true,
       "proxy 2 127.0.0.1:10081"},
      {"by type alone", R"({"log":1,"inbounds":"type": "mixed","outbounds":1})", true,
       "proxy 2 127.0.0.1:10081"},
      {"no mixed inbound", R"({"log":1,"inbounds":1,"outbounds":1})", true, ""},
  };
  for (const auto& row : rows) {
    journal.Take();
    EXPECT_EQ(Load(row.config, row.switched_on).kind, "success") << row.why;
    const auto calls = journal.Take();
    const bool set = std::find(calls.begin(), calls.end(), row.expected) != calls.end();
    EXPECT_EQ(set, !row.expected.empty()) << row.why;
  }
}

TEST_F(ConnectTest, RefusedProxyIsAWarningAndTheTunnelRuns) {
  proxy.store_error = 12010;
  errors.Clear();
  EXPECT_EQ(Load(ProxyConfig("2080")).kind, "success");
  EXPECT_TRUE(errors.Has("[ProxyManager] Failed to enable proxy. Error: 12010"));
  EXPECT_TRUE(errors.Has("[WARNING] Failed to configure system proxy"));
  EXPECT_TRUE(IsVpnConnected());
}

TEST_F(ConnectTest, AnswerIsTextWhateverTheEngineSaid) {
  FakeEngine::Get().on_new = [](const std::string&) { return 0; };
  FakeEngine::Get().last_error = R"(bad \u00e9)";  // undone by the filter, to one byte
  EXPECT_EQ(Load(ProxyConfig()).message, "Failed to create sing-box service: bad \xC3\xA9");
}

// Each way in which a start fails: what the interface hears, and what is left.
struct FailureRow {
  const char* why;
  std::function<std::uint64_t(const std::string&)> on_new;
  std::function<std::int32_t(std::uint64_t)> on_start, on_close;
  const char* last_error;
  std::string message;
  std::string lines;
  std::vector<std::string> calls;
};

// A step of the engine that throws, and of what kind.
template <typename Thrown>
auto Throwing(const Thrown& thrown) {
  return [thrown](const auto&) -> std::int32_t { throw thrown; };
}

TEST_F(ConnectTest, EngineFailuresAreToldThreeWays) {
  const auto none = [](const std::string&) { return std::uint64_t{0}; };
  const auto fails = [](std::uint64_t) { return 7; };
  const auto throwing = Throwing(std::runtime_error("no route to 1.2.3.4:443"));
  const auto not_closed = [](std::uint64_t) { return 9; };
  const std::string no_service = "[ERROR] Failed to create sing-box service - service_id is 0\n";
  const std::string no_start = "[ERROR] Failed to start sing-box service, error code: 7\n";
  const std::string no_reason = "[ERROR] sing-box error: Unknown error";
  const std::vector<std::string> made = {"crash output ''", "new"};
  const std::vector<std::string> started = {"crash output ''", "new", "start 1"};
  const std::vector<std::string> closed = {"crash output ''", "new", "start 1", "close 1"};
  const FailureRow rows[] = {
      {"no service", none, nullptr, nullptr, "decode config: server 1.2.3.4:443",
       "Failed to create sing-box service: decode config: server [ip]",
       no_service + "[ERROR] DLL Parser Error: decode config: server [ip]", made},
      {"no service and no reason", none, nullptr, nullptr, nullptr,
       "Failed to create sing-box service: Unknown error",
       no_service + "[ERROR] DLL Parser Error: Unknown error", made},
      {"no start", nullptr, fails, nullptr, "listen failed",
       "Failed to start sing-box service: listen failed",
       no_start + "[ERROR] sing-box error: listen failed", closed},
      {"no start and no close", nullptr, fails, not_closed, nullptr,
       "Failed to start sing-box service: Unknown error",
       no_start + no_reason +
           "\n[DIAG] failed-start cleanup close rc=9 \u2014 unconfirmed close latched",
       closed},
      {"a throw while parsing", throwing, nullptr, nullptr, nullptr,
       "Exception in singbox_new_service: no route to [ip]",
       "[ERROR] Exception in singbox_new_service: no route to [ip]", made},
      {"a throw while starting", nullptr, throwing, nullptr, nullptr,
       "Exception in singbox_start_service: no route to [ip]",
       "[ERROR] Exception in singbox_start_service: no route to [ip]", closed},
      {"a throw of no standard kind", Throwing(5), nullptr, nullptr, nullptr,
       "Exception in singbox_new_service: ", "[ERROR] Exception in singbox_new_service: ", made},
      {"a throw out of the cleanup close", nullptr, fails, Throwing(std::runtime_error("x")),
       nullptr, "Exception in StartBox: x",
       no_start + no_reason + "\n[ERROR] Exception in StartBox: x", closed},
      {"no way to close", nullptr, fails, nullptr, nullptr,
       "Failed to start sing-box service: Unknown error", no_start + no_reason, started},
  };
  for (const FailureRow& row : rows) {
    FakeEngine& engine = FakeEngine::Get();
    engine.on_new = row.on_new;
    engine.on_start = row.on_start;
    engine.on_close = row.on_close;
    engine.last_error = row.last_error;
    engine.next_id = 1;
    if (std::string_view(row.why) == "no way to close") {
      vpn_state().engine.singbox_close_service = nullptr;
    }
    {
      const RecursiveMutexLock lock(vpn_state().lifecycle_mutex);
      vpn_state().unconfirmed_close_latched = false;
    }
    const std::string config = ProxyConfig();
    ASSERT_TRUE(SaveVpnConfigFile(config));
    journal.Take();
    dart.Heard();
    errors.Clear();

    const Answer answer = Call("doConnectVpn");
    EXPECT_EQ(answer.code, "CONNECTION_FAILED") << row.why;
    EXPECT_EQ(answer.message, row.message) << row.why;
    EXPECT_FALSE(answer.has_details) << row.why;
    EXPECT_EQ(LinesAsText(), row.lines) << row.why;
    EXPECT_EQ(journal.Take(), row.calls) << row.why;
    EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connecting",
                                          "onVPNError CONNECTION_FAILED: " + row.message,
                                          "onVPNStateChanged vpn_disconnected"))
        << row.why;
    EXPECT_FALSE(IsVpnConnected()) << row.why;
    EXPECT_EQ(RunningConfig(), "") << row.why;
    EXPECT_EQ(LoadVpnConfigFile(), config) << row.why;
    EXPECT_EQ(vpn_state().last_native_error.Load()->message, row.message) << row.why;
    EXPECT_EQ(engine.open_strings, 0) << row.why;
  }
}

TEST_F(ConnectTest, FailedTextLeavesARunningTunnelAlone) {
  Load(ProxyConfig("2080"));
  journal.Take();
  dart.Heard();
  const Answer answer = Call("connectForNodeSwitching", EncodableValue("{\"log\"}"));
  EXPECT_EQ(answer.code, "INVALID_CONFIG");
  EXPECT_EQ(answer.message, "Invalid VPN configuration format");
  // The word is known to be wrong here, and a refresh corrects it.
  EXPECT_THAT(dart.Heard(),
              ElementsAre("onVPNError INVALID_CONFIG: Invalid VPN configuration format",
                          "onVPNStateChanged vpn_disconnected"));
  EXPECT_THAT(journal.Take(), IsEmpty());
  EXPECT_EQ(Call("isRunning").value, EncodableValue(true));
  Call("refreshVPNStatus");
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connected"));
}

TEST_F(ConnectTest, RefusalsBeforeTheTeardownSayWhatIsWrong) {
  std::string code;
  std::string message;
  EXPECT_FALSE(StartBox("", &code, &message));
  EXPECT_EQ(code + ": " + message, "INVALID_CONFIG: Config is empty");
  EXPECT_FALSE(StartBox("{}", &code, &message));
  EXPECT_EQ(code + ": " + message, "INVALID_CONFIG: Invalid VPN configuration format");
  EXPECT_TRUE(errors.Has("[ERROR] Config is empty!"));
  EXPECT_TRUE(errors.Has("[ERROR] Config validation failed!"));

  vpn_state().core_integrity_failed = true;
  EXPECT_FALSE(StartBox(ProxyConfig(), &code, &message));
  EXPECT_EQ(code, "CORE_INTEGRITY_FAILED");
  EXPECT_EQ(message,
            "VPN core integrity check failed. The bundled VPN engine (sing-box.dll) is missing, "
            "unsigned, or not signed by Korvane, and was refused. Reinstall Korvane from the "
            "official source.");
  EXPECT_FALSE(StartBox(ProxyConfig(), nullptr, nullptr));
  vpn_state().core_integrity_failed = false;

  EngineTable& engine = vpn_state().engine;
  auto* const start = std::exchange(engine.singbox_start_service, nullptr);
  errors.Clear();
  EXPECT_FALSE(StartBox(ProxyConfig(), &code, &message));
  EXPECT_EQ(code + ": " + message, "CONNECTION_FAILED: DLL functions not loaded");
  EXPECT_THAT(Lines(), ElementsAre("[ERROR] DLL functions not loaded", "  singbox_new_service_: OK",
                                   "  singbox_start_service_: NULL"));
  engine.singbox_start_service = start;
  engine.singbox_new_service = nullptr;
  EXPECT_FALSE(StartBox(ProxyConfig(), &code, &message));
  EXPECT_THAT(Lines(), ElementsAre("[ERROR] DLL functions not loaded",
                                   "  singbox_new_service_: NULL", "  singbox_start_service_: OK"));
  EXPECT_THAT(journal.Take(), IsEmpty());
}

TEST_F(ConnectTest, SavingTakesAValidTextAndTheTextThatIsThere) {
  errors.Clear();
  EXPECT_FALSE(SaveVPNPreference("{}"));
  EXPECT_THAT(Lines(), ElementsAre("[ERROR] SaveVPNPreference: Config validation failed!"));
  EXPECT_EQ(RunningConfig(), "");
  const RecursiveMutexLock lock(vpn_state().lifecycle_mutex);
  vpn_state().config_text = ProxyConfig();
  EXPECT_TRUE(SaveVPNPreference(vpn_state().config_text));
  EXPECT_EQ(LoadVpnConfigFile(), ProxyConfig());
}

TEST_F(ConnectTest, UnwritableStoreIsAStorageError) {
  WriteBytes(folder / "Korvane", "a file where the folder should be");
  const Answer answer = Load(ProxyConfig());
  EXPECT_EQ(answer.code, "STORAGE_ERROR");
  EXPECT_EQ(answer.message, "Failed to save VPN configuration");
  EXPECT_THAT(dart.Heard(),
              ElementsAre("onVPNError STORAGE_ERROR: Failed to save VPN configuration",
                          "onVPNStateChanged vpn_disconnected"));
  EXPECT_EQ(RunningConfig(), ProxyConfig()) << "the text is replaced although the file isn't";
}

TEST_F(ConnectTest, TunWithoutRightsIsRefusedAndNothingStops) {
  Load(ProxyConfig("2080"));
  journal.Take();
  dart.Heard();
  const Answer answer = Load(TunConfig());
  EXPECT_EQ(answer.code, "ELEVATION_REQUIRED");
  EXPECT_EQ(answer.message, "Administrator privileges required to start VPN");
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_elevation_required"));
  EXPECT_THAT(journal.Take(), IsEmpty());
  EXPECT_TRUE(IsVpnConnected());
  EXPECT_EQ(CurrentVpnState(), "vpn_connected");
  EXPECT_EQ(vpn_state().op_depth, 0);
}

// A stale adapter: one more try, under a new name that only the running text carries.
TEST_F(ConnectTest, StaleTunNameIsRetriedOnceUnderANewName) {
  elevation.administrator = true;
  FakeEngine& engine = FakeEngine::Get();
  std::vector<std::string> configs;
  engine.on_new = [&](const std::string& config) {
    configs.push_back(config);
    return engine.next_id++;
  };
  engine.on_start = [](std::uint64_t id) { return id == 1 ? 1 : 0; };
  engine.last_error =
      "configure tun interface: Cannot create a file when that file already exists.";
  EXPECT_EQ(Load(TunConfig()).kind, "success");

  const std::string name = "Korvane-TUN-" + std::to_string(platform::os().process->Id()) + "-1";
  const std::string rewritten = TunConfig("\"interface_name\": \"" + name + "\",");
  EXPECT_THAT(configs, ElementsAre(TunConfig(), rewritten));
  EXPECT_THAT(clock.waits(), ElementsAre(350, 500));
  EXPECT_EQ(RunningConfig(), rewritten);
  EXPECT_EQ(LoadVpnConfigFile(), TunConfig()) << "the file keeps the text that was given";
  EXPECT_TRUE(errors.Has(
      "[WARNING] Detected stale TUN interface collision. Retrying with interface name: " + name));
  EXPECT_THAT(journal.Take(),
              ElementsAre("crash output ''", "new", "start 1", "close 1", "new", "start 2"))
      << "and the proxy isn't touched";
}

TEST_F(ConnectTest, NoRetryWithoutATunNameToChange) {
  elevation.administrator = true;
  FakeEngine& engine = FakeEngine::Get();
  engine.on_start = [](std::uint64_t) { return 1; };
  engine.last_error = "configure tun interface: already exists";
  const struct {
    const char* why;
    std::string config;
    std::vector<std::uint32_t> waits;
    std::string counter;
  } rows[] = {
      {"no name in the text", TunConfig(""), {350}, "1"},
      {"no tunnel of that kind", ProxyConfig(), {350}, "1"},
      {"twice in a row", TunConfig(), {350, 350, 500}, "2"},
      {"another fault", TunConfig(), {350, 350, 500, 350}, "2"},
  };
  for (const auto& row : rows) {
    if (std::string_view(row.why) == "another fault") {
      engine.last_error = "configure tun interface: denied";
    }
    const Answer answer = Load(row.config);
    EXPECT_EQ(answer.message, std::string("Failed to start sing-box service: ") + engine.last_error)
        << row.why;
    EXPECT_EQ(clock.waits(), row.waits) << row.why;
    EXPECT_EQ(std::to_string(vpn_state().tun_name_counter), row.counter) << row.why;
  }
}

TEST_F(ConnectTest, PortThatFitsNoIntFailsWithTheEngineRunning) {
  const Answer answer = Load(ProxyConfig("99999999999"));
  EXPECT_EQ(answer.code, "CONNECTION_FAILED");
  EXPECT_EQ(answer.message, "Exception in StartBox: stoi");
  EXPECT_TRUE(IsVpnConnected());
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNError CONNECTION_FAILED: Exception in StartBox: stoi",
                                        "onVPNStateChanged vpn_disconnected"));
  Call("refreshVPNStatus");
  EXPECT_THAT(dart.Heard(), ElementsAre("onVPNStateChanged vpn_connected"));
}

TEST_F(ConnectTest, FiftyMegabytesOfConfigurationAreOneAnswerLike) {
  std::string config = ProxyConfig();
  config.insert(1, "\"note\":\"" + std::string(50'000'000, 'n') + "\",");
  EXPECT_EQ(Load(config).kind, "success");
  EXPECT_EQ(RunningConfig().size(), config.size());
}

}  // namespace
}  // namespace korvane::test
