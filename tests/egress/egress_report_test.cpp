#include "egress/egress_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "egress/interface_selection.h"
#include "egress/report_text.h"
#include "platform/real_os.h"
#include "support/counting_os.h"

namespace korvane {
namespace {

using test::AsJson;
using Json = nlohmann::ordered_json;

// A machine with three interfaces (7, 12 and 3, in the system's order) whose engine talks from
// interface 12 to the endpoint of its configuration.
EgressSnapshot SoundSnapshot() {
  EgressSnapshot snapshot;
  snapshot.config = ParseEgressConfig(R"({"route":{"auto_detect_interface":true},"outbounds":[
      {"tag":"proxy","type":"selector"},
      {"tag":"node","type":"vless","server":"203.0.113.9","server_port":8443}]})",
                                      true);
  snapshot.selectorProbes = {{.tag = "proxy", .status = SelectorProbeStatus::kRead, .now = "node"}};
  snapshot.adapters = {
      {.ifIndex = 7, .operStatus = 2, .ipv4Metric = 71, .addresses = {"198.51.100.7"}},
      {.ifIndex = 12,
       .operStatus = 1,
       .ipv4Metric = 25,
       .addresses = {"fe80::12", "198.51.100.12", "2001:db8::12"}},
      {.ifIndex = 3, .operStatus = 1, .ipv4Metric = 75, .addresses = {"127.0.0.1", "::1"}}};
  snapshot.routes = {{.family = 4, .ifIndex = 12, .metric = 35},
                     {.family = 6, .ifIndex = 3, .metric = 256}};
  snapshot.sockets = {{.localAddress = "127.0.0.1",
                       .localPort = 50001,
                       .remoteAddress = "127.0.0.1",
                       .remotePort = 8443},
                      {.localAddress = "198.51.100.12",
                       .localPort = 50002,
                       .remoteAddress = "203.0.113.9",
                       .remotePort = 8443}};
  return snapshot;
}

using Change = std::function<void(EgressSnapshot&)>;

Json ReportOf(const Change& change) {
  EgressSnapshot snapshot = SoundSnapshot();
  change(snapshot);
  return AsJson(BuildEgressReport(snapshot));
}

// Nothing else stands in it, so no address, port, name or index of the system.
TEST(EgressReportTest, TellsEveryValueInItsOrder) {
  EXPECT_EQ(AsJson(BuildEgressReport(SoundSnapshot())).dump(1), Json::parse(R"({
      "configStatus": "OK",
      "autoDetectInterfaceEnabled": true,
      "egressSelectionPolicy": "singbox_auto_detect",
      "activeEndpointStatus": "OK",
      "selectorHintStale": false,
      "selectedInterfaceOrdinal": 3,
      "selectionStatus": "OK",
      "interfacesStatus": "OK",
      "interfaces": [
        {"ordinal": 1, "operStatus": 1, "interfaceMetric": 75},
        {"ordinal": 2, "operStatus": 2, "interfaceMetric": 71},
        {"ordinal": 3, "operStatus": 1, "interfaceMetric": 25}],
      "defaultRoutesStatus": "OK",
      "defaultRoutes": [
        {"family": 4, "interfaceOrdinal": 3, "interfaceOrdinalStatus": "OK", "routeMetric": 35},
        {"family": 6, "interfaceOrdinal": 1, "interfaceOrdinalStatus": "OK", "routeMetric": 256}],
      "socketSourcesStatus": "OK",
      "observedSocketSources": [{"interfaceOrdinal": 1}, {"interfaceOrdinal": 3}]
  })")
                                                                    .dump(1));
}

TEST(EgressReportTest, SpeaksOfTheMachineWithoutAConfiguration) {
  const Json report = ReportOf([](auto& snapshot) { snapshot.config = {}; });
  EXPECT_EQ(report["configStatus"], "NO_CONFIG");
  EXPECT_FALSE(report.contains("autoDetectInterfaceEnabled"));
  EXPECT_EQ(report["egressSelectionPolicy"], "unknown");
  EXPECT_EQ(report["activeEndpointStatus"], "NOT_EVALUATED_CONFIG_UNAVAILABLE");
  EXPECT_EQ(report["selectionStatus"], "NOT_EVALUATED_ENDPOINT_UNAVAILABLE");
  EXPECT_EQ(report["selectedInterfaceOrdinal"], nullptr);
  EXPECT_EQ(report["interfaces"].size(), 3U);
  EXPECT_EQ(report["defaultRoutes"].size(), 2U);
  EXPECT_EQ(report["observedSocketSources"].size(), 2U);
}

TEST(EgressReportTest, EachSourceFailsByItself) {
  Json report = ReportOf([](auto& snapshot) { snapshot.adaptersFailed = true; });
  EXPECT_EQ(report["interfacesStatus"], "ADAPTER_ENUM_FAILED");
  EXPECT_TRUE(report["interfaces"].empty());
  // Routes stand without ordinals, and aren't called inconsistent for it.
  EXPECT_EQ(report["defaultRoutesStatus"], "OK");
  ASSERT_EQ(report["defaultRoutes"].size(), 2U);
  EXPECT_EQ(report["defaultRoutes"][0]["interfaceOrdinal"], nullptr);
  EXPECT_EQ(report["defaultRoutes"][0]["interfaceOrdinalStatus"], "ROUTE_INTERFACE_UNMAPPED");
  EXPECT_EQ(report["socketSourcesStatus"], "OK");
  EXPECT_TRUE(report["observedSocketSources"].empty());

  report = ReportOf([](auto& snapshot) { snapshot.routesFailed = true; });
  EXPECT_EQ(report["defaultRoutesStatus"], "ROUTE_ENUM_FAILED");
  EXPECT_TRUE(report["defaultRoutes"].empty());
  EXPECT_EQ(report["selectionStatus"], "OK");

  report = ReportOf([](auto& snapshot) { snapshot.socketsFailed = true; });
  EXPECT_EQ(report["socketSourcesStatus"], "SOCKET_ENUM_FAILED");
  EXPECT_TRUE(report["observedSocketSources"].empty());
  EXPECT_EQ(report["interfaces"].size(), 3U);
}

TEST(EgressReportTest, AdmitsARouteToAnInterfaceThatWent) {
  // The first stands between those that are there.
  const Json between = ReportOf([](auto& snapshot) { snapshot.routes[0].ifIndex = 8; });
  EXPECT_EQ(between["defaultRoutesStatus"], "SNAPSHOT_INCONSISTENT");
  const Json report = ReportOf([](auto& snapshot) { snapshot.routes[1].ifIndex = 99; });
  EXPECT_EQ(report["defaultRoutesStatus"], "SNAPSHOT_INCONSISTENT");
  EXPECT_EQ(report["defaultRoutes"][0]["interfaceOrdinalStatus"], "OK");
  EXPECT_EQ(report["defaultRoutes"][1]["interfaceOrdinal"], nullptr);
  EXPECT_EQ(report["defaultRoutes"][1]["interfaceOrdinalStatus"], "ROUTE_INTERFACE_UNMAPPED");
}

TEST(EgressReportTest, KeepsTwoAdaptersOfOneIndexUnderOneOrdinal) {
  const Json report = ReportOf([](auto& snapshot) { snapshot.adapters[0].ifIndex = 12; });
  ASSERT_EQ(report["interfaces"].size(), 3U);
  EXPECT_EQ(report["interfaces"][1]["ordinal"], 2);
  EXPECT_EQ(report["interfaces"][1]["interfaceMetric"], 71);  // in the system's order
  EXPECT_EQ(report["interfaces"][2]["ordinal"], 2);
}

TEST(EgressReportTest, AHintIsStaleOutsideTheChain) {
  const auto stale = [](const std::string& hint, bool has_config) {
    return ReportOf([&](auto& snapshot) {
             snapshot.selectorHint = hint;
             snapshot.config = has_config ? snapshot.config : EgressConfig();
           })["selectorHintStale"]
        .get<bool>();
  };
  EXPECT_FALSE(stale("", true));
  EXPECT_FALSE(stale("proxy", true));
  EXPECT_FALSE(stale("node", true));
  EXPECT_TRUE(stale("other", true));
  EXPECT_FALSE(stale("", false));
  EXPECT_TRUE(stale("proxy", false));  // nothing was walked that it could be part of
}

TEST(InterfaceSelectionTest, TellsWhyThereIsNoInterface) {
  const SocketRow matching = SoundSnapshot().sockets[1];
  const auto from = [matching](const char* address) {
    SocketRow socket = matching;
    socket.localAddress = address;
    return socket;
  };
  struct Case {
    const char* what;
    Change change;
    const char* status;
  };
  const std::vector<Case> cases = {
      {"two sockets on one interface",
       [&](EgressSnapshot& s) { s.sockets.push_back(from("2001:DB8:0::12")); }, "OK"},
      {"the system routes, even with nothing read",
       [](EgressSnapshot& s) {
         s.config.autoDetectInterface = false;
         s.socketsFailed = s.adaptersFailed = true;
         s.config.outbounds.clear();
       },
       "NOT_APPLICABLE_OS_ROUTED"},
      {"no endpoint, and nothing read",
       [](EgressSnapshot& s) {
         s.selectorProbes.clear();
         s.socketsFailed = s.adaptersFailed = true;
       },
       "NOT_EVALUATED_ENDPOINT_UNAVAILABLE"},
      {"neither sockets nor adapters",
       [](EgressSnapshot& s) { s.socketsFailed = s.adaptersFailed = true; },
       "NOT_EVALUATED_SOCKET_ENUM_FAILED"},
      {"no adapters", [](auto& s) { s.adaptersFailed = true; },
       "NOT_EVALUATED_ADAPTER_ENUM_FAILED"},
      {"no sockets", [](EgressSnapshot& s) { s.sockets.clear(); }, "NO_MATCHING_SOCKET"},
      {"another port", [](EgressSnapshot& s) { s.sockets[1].remotePort = 443; },
       "NO_MATCHING_SOCKET"},
      {"a mapped address of the other family",
       [](EgressSnapshot& s) { s.sockets[1].remoteAddress = "::ffff:203.0.113.9"; },
       "NO_MATCHING_SOCKET"},
      {"an address that no adapter has",
       [&](EgressSnapshot& s) {
         s.sockets = {from("192.0.2.1"), from("not an address")};
       },
       "SOCKET_SOURCE_ADDRESS_UNMAPPED"},
      {"one address known, another not",
       [&](EgressSnapshot& s) { s.sockets.push_back(from("192.0.2.1")); },
       "PARTIAL_SOCKET_SOURCE_MAPPING"},
      {"two interfaces, and an address that no adapter has",
       [&](EgressSnapshot& s) {
         s.sockets.push_back(from("127.0.0.1"));
         s.sockets.push_back(from("192.0.2.1"));
       },
       "PARTIAL_SOCKET_SOURCE_MAPPING"},
      {"two interfaces", [&](EgressSnapshot& s) { s.sockets.push_back(from("127.0.0.1")); },
       "MULTIPLE_MATCHING_SOCKET_INTERFACES"},
      {"an address of two adapters",
       [](EgressSnapshot& s) { s.adapters[0].addresses.emplace_back("198.51.100.12"); },
       "ADDRESS_INTERFACE_AMBIGUOUS"},
      {"an address of two adapters, one of none, and one that maps",
       [&](EgressSnapshot& s) {
         s.adapters[0].addresses.emplace_back("198.51.100.12");
         s.sockets.push_back(from("127.0.0.1"));
         s.sockets.push_back(from("192.0.2.1"));
       },
       "ADDRESS_INTERFACE_AMBIGUOUS"},
      {"an address twice under one index",
       [](EgressSnapshot& s) {
         s.adapters[0].ifIndex = 12;
         s.adapters[0].addresses.emplace_back("198.51.100.12");
       },
       "OK"},
  };
  for (const Case& each : cases) {
    const Json report = ReportOf(each.change);
    EXPECT_EQ(report["selectionStatus"], each.status) << each.what;
    EXPECT_EQ(report["selectedInterfaceOrdinal"].is_null(), std::string(each.status) != "OK")
        << each.what;
  }
}

TEST(NetworkSnapshotTest, ReadsTheTablesOfThisMachine) {
  EgressSnapshot snapshot = SoundSnapshot();
  CollectAdapters(snapshot);
  CollectDefaultRoutes(snapshot);
  CollectOwnSockets(snapshot);
  ASSERT_FALSE(snapshot.adaptersFailed || snapshot.routesFailed || snapshot.socketsFailed);
  for (const AdapterRow& adapter : snapshot.adapters) {
    for (const std::string& address : adapter.addresses) {
      EXPECT_TRUE(ParseIpLiteral(address).ok) << address;
    }
  }
  const Json report = AsJson(BuildEgressReport(snapshot));
  EXPECT_EQ(report["interfaces"].size(), snapshot.adapters.size());
  EXPECT_EQ(report["selectionStatus"], "NO_MATCHING_SOCKET");
}

TEST(NetworkSnapshotTest, MarksTheTableThatFailed) {
  for (std::size_t step = 1; step <= 3; ++step) {
    test::CountingOs failing(platform::RealOs(), test::FailOnce(step));
    const platform::ScopedOs in_force(failing.os());
    EgressSnapshot snapshot = SoundSnapshot();
    CollectAdapters(snapshot);
    CollectDefaultRoutes(snapshot);
    CollectOwnSockets(snapshot);
    EXPECT_EQ(snapshot.adaptersFailed, step == 1);
    EXPECT_EQ(snapshot.routesFailed, step == 2);
    EXPECT_EQ(snapshot.socketsFailed, step == 3);
    EXPECT_TRUE(step != 1 || snapshot.adapters.empty());
  }
}

}  // namespace
}  // namespace korvane
