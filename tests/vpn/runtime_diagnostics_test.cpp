#include "vpn/runtime_diagnostics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "recorder/startup_recorder.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_event_stream.h"

namespace korvane::test {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kConfig[] = R"({
  "log":{},
  "inbounds":[{"type":"mixed","tag":"mixed-in","listen_port":2080}],
  "outbounds":[{"tag":"proxy","type":"selector"},
               {"tag":"by hand","type":"selector"},
               {"tag":"node","type":"vless","server":"203.0.113.9","server_port":8443}],
  "route":{"auto_detect_interface":true},
  "experimental":{"clash_api":{"external_controller":"127.0.0.1:9090"}}})";

// A machine with one interface, from which this process talks to the node of
// kConfig.
class FakeNetwork : public platform::Network {
 public:
  explicit FakeNetwork(CallJournal& journal) : journal_(journal) {}

  platform::Result<std::vector<platform::AdapterRow>> Adapters() override {
    journal_.Add("adapters");
    return std::vector<platform::AdapterRow>{
        {.ifIndex = 5, .operStatus = 1, .ipv4Metric = 25, .addresses = {"198.51.100.5"}}};
  }
  platform::Result<std::vector<platform::RouteRow>> DefaultRoutes() override {
    journal_.Add("routes");
    return std::vector<platform::RouteRow>{{.family = 4, .ifIndex = 6, .metric = 35}};
  }
  platform::Result<std::vector<platform::SocketRow>> OwnSockets() override {
    journal_.Add("sockets");
    return std::vector<platform::SocketRow>{{.localAddress = "198.51.100.5",
                                             .localPort = 50001,
                                             .remoteAddress = "203.0.113.9",
                                             .remotePort = 8443}};
  }

 private:
  CallJournal& journal_;
};

class RuntimeDiagnosticsTest : public TunnelTest {
 protected:
  RuntimeDiagnosticsTest() : network_(journal), scope_(WithNetwork(network_)) {
    http.on_request = [this](const std::string& path) { journal.Add("GET " + path); };
    Register();
    journal.Take();
  }

  void Connect(const std::string& config) {
    Call("loadVPNPreference", EncodableMap{{"config", config}, {"autoConfigureProxy", true}});
    journal.Take();
  }

  EncodableMap Report(const EncodableValue& arguments = {}) {
    const Answer answer = Call("getWindowsRuntimeDiagnostics", arguments);
    EXPECT_EQ(answer.kind, "success");
    EXPECT_FALSE(answer.on_window_thread);
    const auto* map = answer.value.GetIf<EncodableMap>();
    return map != nullptr ? *map : EncodableMap();
  }

 private:
  static platform::Os WithNetwork(FakeNetwork& network) {
    platform::Os os = platform::os();
    os.network = &network;
    return os;
  }

  FakeNetwork network_;
  platform::ScopedOs scope_;
};

// The report without the startup facts, which are of their own test.
EncodableMap WithoutStartup(EncodableMap report) {
  report.erase(EncodableValue("startup"));
  return report;
}

TEST_F(RuntimeDiagnosticsTest, TellsEveryKeyInItsTypeWithoutASession) {
  const EncodableValue null;
  const EncodableMap route = {{"family", std::int64_t{4}},
                              {"interfaceOrdinal", null},
                              {"interfaceOrdinalStatus", "ROUTE_INTERFACE_UNMAPPED"},
                              {"routeMetric", std::int64_t{35}}};
  const EncodableMap interface = {{"ordinal", std::int64_t{1}},
                                  {"operStatus", std::int64_t{1}},
                                  {"interfaceMetric", std::int64_t{25}}};
  const EncodableMap expected = {
      {"lastAttemptedMode", "none"},
      {"effectiveMode", "none"},
      {"isAdmin", false},
      {"isRunning", false},
      {"autoConfigureProxy", true},
      {"systemProxyEnabled", false},
      {"systemProxyServer", ""},
      {"systemProxyBypass", ""},
      {"clashApiReachable", false},
      {"clashApiPort", null},
      {"mixedInboundPort", null},
      {"lastNativeError", null},
      {"libboxLogPath", ""},
      {"configStatus", "NO_CONFIG"},
      {"egressSelectionPolicy", "unknown"},
      {"activeEndpointStatus", "NOT_EVALUATED_CONFIG_UNAVAILABLE"},
      {"selectorHintStale", false},
      {"selectedInterfaceOrdinal", null},
      {"selectionStatus", "NOT_EVALUATED_ENDPOINT_UNAVAILABLE"},
      {"interfacesStatus", "OK"},
      {"interfaces", EncodableList{interface}},
      {"defaultRoutesStatus", "SNAPSHOT_INCONSISTENT"},
      {"defaultRoutes", EncodableList{route}},
      {"socketSourcesStatus", "OK"},
      {"observedSocketSources", EncodableList{EncodableMap{{"interfaceOrdinal", std::int64_t{1}}}}},
  };
  EXPECT_EQ(WithoutStartup(Report()), expected);
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
}

TEST_F(RuntimeDiagnosticsTest, TellsOfARunningTunnel) {
  http.answers["/version"] = R"({"version":"1"})";
  http.answers["/proxies/proxy"] = R"({"now":"node"})";
  elevation.administrator = true;
  Connect(kConfig);
  const EncodableMap report = Report(EncodableMap{{"selectorTag", "proxy"}});
  const EncodableMap expected = {
      {"lastAttemptedMode", "proxy"},
      {"effectiveMode", "proxy"},
      {"isAdmin", true},
      {"isRunning", true},
      {"systemProxyEnabled", true},
      {"systemProxyServer", "127.0.0.1:2080"},
      {"clashApiReachable", true},
      {"clashApiPort", std::int32_t{9090}},
      {"mixedInboundPort", std::int32_t{2080}},
      {"configStatus", "OK"},
      {"autoDetectInterfaceEnabled", true},
      {"egressSelectionPolicy", "singbox_auto_detect"},
      {"activeEndpointStatus", "OK"},
      {"selectorHintStale", false},
      {"selectedInterfaceOrdinal", std::int64_t{1}},
      {"selectionStatus", "OK"},
  };
  for (const auto& [key, value] : expected) {
    const std::string& name = *key.GetIf<std::string>();
    const EncodableValue* found = flutter::Find(report, name);
    ASSERT_NE(found, nullptr) << name;
    EXPECT_EQ(*found, value) << name;
  }
  EXPECT_EQ(report.size(), 27U);
  EXPECT_THAT(journal.Take(), ElementsAre("GET /version", "adapters", "routes", "sockets",
                                          "GET /proxies/proxy", "GET /proxies/by%20hand"));
  EXPECT_THAT(http.TakeRequests(),
              ElementsAre("9090 /version within 1200", "9090 /proxies/proxy within 1200",
                          "9090 /proxies/by%20hand within 1200"));

  Call("stopVPN");
  const EncodableMap stopped = Report();
  EXPECT_EQ(*flutter::FindIf<std::string>(stopped, "lastAttemptedMode"), "none");
  EXPECT_EQ(*flutter::FindIf<std::string>(stopped, "configStatus"), "NO_CONFIG");
}

TEST_F(RuntimeDiagnosticsTest, SaysWhyAGroupsChoiceIsUnknown) {
  const struct {
    const char* answer;
    const char* status;
  } rows[] = {
      {"", "SELECTOR_TRANSPORT_FAILED"},
      {"{", "SELECTOR_RESPONSE_MALFORMED"},
      {"{}", "SELECTOR_NOW_MISSING"},
      {R"({"now":"node"})", "OK"},
  };
  Connect(kConfig);
  for (const auto& row : rows) {
    http.answers["/proxies/proxy"] = row.answer;
    const EncodableMap report = Report();
    EXPECT_EQ(*flutter::FindIf<std::string>(report, "activeEndpointStatus"), row.status)
        << row.answer;
  }
}

TEST_F(RuntimeDiagnosticsTest, TakesAHintOfExactlyAString) {
  const auto stale = [this](const EncodableValue& arguments) {
    return *flutter::FindIf<bool>(Report(arguments), "selectorHintStale");
  };
  EXPECT_TRUE(stale(EncodableMap{{"selectorTag", "elsewhere"}}));
  EXPECT_FALSE(stale(EncodableMap{{"selectorTag", std::int32_t{1}}}));
  EXPECT_FALSE(stale(EncodableValue("elsewhere")));
}

TEST_F(RuntimeDiagnosticsTest, TellsTheLastErrorUntilAStartSucceeds) {
  const auto last = [this] { return *flutter::Find(Report(), "lastNativeError"); };
  PostNativeError("CODE", "words");
  EXPECT_EQ(last(), EncodableValue("CODE: words"));
  PostNativeError("", "words alone");
  EXPECT_EQ(last(), EncodableValue("words alone"));
  PostNativeError("CODE", "\xFF");
  EXPECT_NE(last(), EncodableValue("CODE: \xFF"));  // fit for a channel
  Connect(kConfig);
  EXPECT_TRUE(last().IsNull());
}

TEST_F(RuntimeDiagnosticsTest, CarriesTheStartupFactsAsTheyAre) {
  StartupRecorder::instance().RecordUpdateResult(
      EncodableMap{{"last_result", "failed"}, {"last_attempt_at", EncodableValue()}});
  const EncodableMap report = Report();
  const auto* startup = flutter::FindIf<EncodableMap>(report, "startup");
  ASSERT_NE(startup, nullptr);
  EXPECT_EQ(*startup, StartupRecorder::instance().Snapshot());
  EXPECT_NE(flutter::FindIf<EncodableMap>(*startup, "update"), nullptr);
}

// Nothing answers, and on a thread of its own nothing catches.
TEST_F(RuntimeDiagnosticsTest, LetsAPortBeyondAnIntThrough) {
  RuntimeDiagnosticsJob job;
  job.config = R"("external_controller":"127.0.0.1:99999999999")";
  EXPECT_THROW(RuntimeDiagnosticsWorker(nullptr, job), std::out_of_range);
}

}  // namespace
}  // namespace korvane::test
