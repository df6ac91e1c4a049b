#include "egress/egress_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string WithOutbounds(const std::string& outbounds) {
  return R"({"route":{"auto_detect_interface":true},"outbounds":)" + outbounds + "}";
}

EgressConfig ConfigOf(const std::string& outbounds) {
  EgressConfig config = ParseEgressConfig(WithOutbounds(outbounds), true);
  EXPECT_EQ(config.configStatus, ConfigStatus::kOk) << outbounds;
  return config;
}

TEST(EgressConfigTest, TellsWhyAConfigurationCantBeRead) {
  struct Case {
    const char* text;
    const char* status;
  };
  constexpr Case kCases[] = {
      {"", "NO_CONFIG"},
      {" ", "JSON_PARSE_FAILED"},
      {"{", "JSON_PARSE_FAILED"},
      {"[]", "JSON_PARSE_FAILED"},
      {"1", "JSON_PARSE_FAILED"},
      {"{}", "AUTO_DETECT_MISSING"},
      {R"({"route":[]})", "AUTO_DETECT_MISSING"},
      {R"({"route":{}})", "AUTO_DETECT_MISSING"},
      {R"({"auto_detect_interface":true,"route":{}})", "AUTO_DETECT_MISSING"},
      {R"({"route":{"auto_detect_interface":"true"}})", "AUTO_DETECT_INVALID"},
      {R"({"route":{"auto_detect_interface":1}})", "AUTO_DETECT_INVALID"},
      {R"({"route":{"auto_detect_interface":false}})", "OK"},
      {R"({"route":{"auto_detect_interface":true,"auto_detect_interface":1}})", "OK"},
      {R"({"route":{"auto_detect_interface":true},"outbounds":{}})", "OK"},
  };
  for (const Case& each : kCases) {
    const EgressConfig config = ParseEgressConfig(each.text, true);
    EXPECT_EQ(ConfigStatusText(config.configStatus), each.status) << each.text;
    EXPECT_THAT(config.outbounds, IsEmpty()) << each.text;
  }
  EXPECT_EQ(ParseEgressConfig("{}", false).configStatus, ConfigStatus::kNoConfig);
  EXPECT_TRUE(ParseEgressConfig(WithOutbounds("[]"), true).autoDetectInterface);
  EXPECT_FALSE(
      ParseEgressConfig(R"({"route":{"auto_detect_interface":false}})", true).autoDetectInterface);
}

TEST(EgressConfigTest, ReducesOutboundsInOrder) {
  const EgressConfig config = ConfigOf(R"([
      {"tag":"a","type":"vless","detour":"b","server":"1.2.3.4","transport":{"type":"ws"}},
      7, "x", [], null,
      {"tag":1,"type":null,"detour":{},"server":5,"transport":"ws"},
      {"server":"","transport":{"type":7}},
      {}])");
  ASSERT_EQ(config.outbounds.size(), 4U);
  EXPECT_EQ(config.outbounds[0].tag, "a");
  EXPECT_EQ(config.outbounds[0].type, "vless");
  EXPECT_EQ(config.outbounds[0].detour, "b");
  EXPECT_EQ(config.outbounds[0].server, "1.2.3.4");
  EXPECT_EQ(config.outbounds[0].transportType, "ws");
  for (std::size_t i = 1; i < 4; ++i) {
    const EgressOutbound& empty = config.outbounds[i];
    EXPECT_EQ(empty.tag + empty.type + empty.detour + empty.server + empty.transportType, "");
    EXPECT_FALSE(empty.hasServer || empty.hasPortField || empty.portInvalid);
    EXPECT_EQ(empty.hasTransport, i != 3);
  }
}

TEST(EgressConfigTest, ReadsPortsOfBothFields) {
  struct Case {
    const char* fields;
    std::vector<std::int32_t> ports;
    bool invalid;
    bool not_singleton;
  };
  const std::vector<Case> cases = {
      {R"("server_port":1)", {1}, false, false},
      {R"("server_port":65535)", {65535}, false, false},
      {R"("server_port":0)", {}, true, false},
      {R"("server_port":65536)", {}, true, false},
      {R"("server_port":-1)", {}, true, false},
      {R"("server_port":4294967739)", {}, true, false},  // 443 in the low 32 bits
      {R"("server_port":443.0)", {}, true, false},
      {R"("server_port":"443")", {}, true, false},
      {R"("server_port":null)", {}, true, false},
      {R"("server_ports":["443"])", {443}, false, false},
      {R"("server_ports":["0443"])", {443}, false, false},
      {R"("server_ports":["443","8443"])", {443, 8443}, false, true},
      {R"("server_ports":["1000:2000"])", {}, false, true},
      {R"("server_ports":[":"])", {}, false, true},
      {R"("server_ports":["443",8443])", {443}, true, true},
      {R"("server_ports":[443])", {}, true, false},
      {R"("server_ports":[])", {}, true, false},
      {R"("server_ports":"443")", {}, true, false},
      {R"("server_ports":[""])", {}, true, false},
      {R"("server_ports":["443x"])", {}, true, false},
      {R"("server_ports":[" 443"])", {}, true, false},
      {R"("server_ports":["+443"])", {}, true, false},
      {R"("server_ports":["0"])", {}, true, false},
      {R"("server_ports":["65536"])", {}, true, false},
      {R"("server_ports":["99999999999999999999"])", {}, true, false},
      {R"("server_port":443,"server_ports":["443"])", {443, 443}, false, false},
      {R"("server_port":443,"server_ports":["1:2"])", {443}, false, true},
  };
  for (const Case& each : cases) {
    const EgressConfig config = ConfigOf("[{" + std::string(each.fields) + "}]");
    const EgressOutbound& outbound = config.outbounds.at(0);
    EXPECT_TRUE(outbound.hasPortField) << each.fields;
    EXPECT_EQ(outbound.ports, each.ports) << each.fields;
    EXPECT_EQ(outbound.portInvalid, each.invalid) << each.fields;
    EXPECT_EQ(outbound.portNotSingleton, each.not_singleton) << each.fields;
  }
}

TEST(EgressConfigTest, JudgesALeafInTheStatedOrder) {
  struct Case {
    const char* fields;
    const char* status;
  };
  constexpr Case kCases[] = {
      {R"("type":"vless","server":"1.2.3.4","server_port":443)", "OK"},
      {R"("type":"vmess","server":"[::1]","server_ports":["443"])", "OK"},
      {R"("type":"trojan","server":"::1","server_port":443,"transport":{"type":"ws"})", "OK"},
      {R"("type":"anytls","server":"1.2.3.4","server_port":1,"transport":{"type":"grpc"})", "OK"},
      {R"("type":"shadowsocks","server":"1.2.3.4","server_port":1,"transport":{"type":"http"})",
       "OK"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"transport":{})", "OK"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"transport":7)", "OK"},
      {R"("type":"direct","server":"1.2.3.4","server_port":443)", "LEAF_HAS_NO_REMOTE_ENDPOINT"},
      {R"("type":"block")", "LEAF_HAS_NO_REMOTE_ENDPOINT"},
      {R"("type":"dns")", "LEAF_HAS_NO_REMOTE_ENDPOINT"},
      {R"("type":"vless","server_port":443)", "ENDPOINT_MISSING"},
      {R"("type":"vless","server":"","server_port":443)", "ENDPOINT_MISSING"},
      {R"("type":"vless","server":"1.2.3.4")", "ENDPOINT_MISSING"},
      {R"("type":"vless","server":"a.example","server_port":0)", "ENDPOINT_INVALID"},
      {R"("type":"vless","server":"1.2.3.4","server_ports":["1:2"])", "ENDPOINT_INVALID"},
      {R"("type":"vless","server":"a.example","server_port":443,"transport":{"type":"?"})",
       "ENDPOINT_NOT_NUMERIC"},
      {R"("type":"?","server":"a.example","server_port":443)", "ENDPOINT_NOT_NUMERIC"},
      {R"("type":"tuic","server":"1.2.3.4","server_ports":["1","2"])", "ENDPOINT_NOT_SINGLETON"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"server_ports":["1:2"])",
       "ENDPOINT_NOT_SINGLETON"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"server_ports":["1"])",
       "ENDPOINT_NOT_SINGLETON"},
      {R"("type":"hysteria","server":"1.2.3.4","server_port":1)", "TRANSPORT_UNSUPPORTED"},
      {R"("type":"hysteria2","server":"1.2.3.4","server_port":1)", "TRANSPORT_UNSUPPORTED"},
      {R"("type":"tuic","server":"1.2.3.4","server_port":1)", "TRANSPORT_UNSUPPORTED"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"transport":{"type":"quic"})",
       "TRANSPORT_UNSUPPORTED"},
      {R"("type":"vless","server":"1.2.3.4","server_port":1,"transport":{"type":"WS"})",
       "TRANSPORT_UNKNOWN"},
      {R"("type":"wireguard","server":"1.2.3.4","server_port":1,"transport":{"type":"quic"})",
       "TRANSPORT_UNKNOWN"},
      {R"("server":"1.2.3.4","server_port":1)", "TRANSPORT_UNKNOWN"},
  };
  for (const Case& each : kCases) {
    const EgressConfig config = ConfigOf("[{" + std::string(each.fields) + "}]");
    const LeafEndpoint endpoint = EvaluateLeafEndpoint(config.outbounds.at(0));
    EXPECT_EQ(ActiveEndpointStatusText(endpoint.status), each.status) << each.fields;
    EXPECT_EQ(endpoint.address.ok, std::string_view(each.status) == "OK") << each.fields;
  }
}

struct Walk {
  std::string status;
  std::string leaf;
  std::vector<std::string> chain;
};

Walk WalkOf(const std::string& outbounds, const std::vector<SelectorProbe>& probes = {}) {
  const EgressConfig config = ConfigOf(outbounds);
  const EgressResolution resolution = ResolveEgressChain(config, probes);
  return {.status = std::string(ActiveEndpointStatusText(resolution.status)),
          .leaf = resolution.leaf != nullptr ? resolution.leaf->tag : "",
          .chain = resolution.chain};
}

SelectorProbe Answered(const std::string& tag, const std::string& now) {
  return {.tag = tag, .status = SelectorProbeStatus::kRead, .now = now};
}

TEST(EgressChainTest, FollowsSelectorsAndDetoursToTheLeaf) {
  const Walk walk =
      WalkOf(R"([
      {"tag":"relay","type":"trojan"},
      {"tag":"proxy","type":"selector"},
      {"tag":"auto","type":"urltest","detour":"proxy"},
      {"tag":"node","type":"vless","detour":"relay"},
      {"tag":"relay","type":"direct","detour":"proxy"}])",
             {Answered("auto", "node"), Answered("proxy", "auto"), Answered("proxy", "relay")});
  EXPECT_EQ(walk.status, "OK");
  EXPECT_EQ(walk.leaf, "relay");
  EXPECT_THAT(walk.chain, ElementsAre("proxy", "auto", "node", "relay"));
}

TEST(EgressChainTest, TellsWhereTheWalkEnded) {
  constexpr char kSelector[] = R"([{"tag":"proxy","type":"selector"},{"tag":"a"}])";
  const auto probe = [](SelectorProbeStatus status, const char* now) {
    return std::vector<SelectorProbe>{{.tag = "proxy", .status = status, .now = now}};
  };
  struct Case {
    const char* outbounds;
    std::vector<SelectorProbe> probes;
    const char* status;
    std::size_t visited;
  };
  const std::vector<Case> cases = {
      {"[]", {}, "OUTBOUND_NOT_FOUND", 0},
      {R"([{"tag":"Proxy"}])", {}, "OUTBOUND_NOT_FOUND", 0},
      {R"([{"tag":"proxy"}])", {}, "OK", 1},
      {kSelector, {}, "SELECTOR_TRANSPORT_FAILED", 1},
      {kSelector, {Answered("other", "a")}, "SELECTOR_TRANSPORT_FAILED", 1},
      {kSelector, probe(SelectorProbeStatus::kNoAnswer, "a"), "SELECTOR_TRANSPORT_FAILED", 1},
      {kSelector, probe(SelectorProbeStatus::kMalformedAnswer, "a"), "SELECTOR_RESPONSE_MALFORMED",
       1},
      {kSelector, probe(SelectorProbeStatus::kNowMissing, "a"), "SELECTOR_NOW_MISSING", 1},
      {kSelector, probe(SelectorProbeStatus::kRead, ""), "SELECTOR_NOW_MISSING", 1},
      {kSelector, probe(SelectorProbeStatus::kRead, "a"), "OK", 2},
      {kSelector, probe(SelectorProbeStatus::kRead, "b"), "OUTBOUND_NOT_FOUND", 1},
      {kSelector, probe(SelectorProbeStatus::kRead, "proxy"), "SELECTOR_CYCLE", 1},
      {R"([{"tag":"proxy","detour":"proxy"}])", {}, "DETOUR_CYCLE", 1},
      {R"([{"tag":"proxy","detour":"a"},{"tag":"a","detour":"proxy"}])", {}, "DETOUR_CYCLE", 2},
      {R"([{"tag":"proxy","detour":"x"}])", {}, "OUTBOUND_NOT_FOUND", 1},
      {R"([{"tag":"proxy","detour":"a"},{"tag":"a","type":"urltest"}])",
       {Answered("a", "proxy")},
       "SELECTOR_CYCLE",
       2},
  };
  for (const Case& each : cases) {
    const Walk walk = WalkOf(each.outbounds, each.probes);
    EXPECT_EQ(walk.status, each.status) << each.outbounds;
    EXPECT_EQ(walk.chain.size(), each.visited) << each.outbounds;
    EXPECT_EQ(walk.leaf.empty(), walk.status != "OK") << each.outbounds;
  }
}

// A chain of this many steps; the last is out of a selector or along a detour, and leads to `end`.
Walk LongWalk(int steps, bool last_is_selector, const std::string& end) {
  std::string outbounds = "[";
  std::vector<SelectorProbe> probes;
  std::string tag = "proxy";
  for (int step = 1; step <= steps; ++step) {
    const std::string next = step == steps ? end : std::to_string(step) + "th";
    // The others are of the other kind: the ninth alone decides.
    if ((step == steps) == last_is_selector) {
      outbounds += R"({"type":"selector","tag":")" + tag + R"("},)";
      probes.push_back(Answered(tag, next));
    } else {
      outbounds += R"({"detour":")" + next + R"(","tag":")" + tag + R"("},)";
    }
    tag = next;
  }
  return WalkOf(outbounds + R"({"tag":"leaf"}])", probes);
}

TEST(EgressChainTest, TakesEightStepsAndNoNinth) {
  for (const bool selector : {true, false}) {
    EXPECT_EQ(LongWalk(8, selector, "leaf").status, "OK");
    EXPECT_EQ(LongWalk(8, selector, "leaf").chain.size(), 9U);
    // The depth is told before a cycle, and a cycle before a missing outbound.
    for (const char* end : {"leaf", "proxy", "missing"}) {
      EXPECT_EQ(LongWalk(9, selector, end).status,
                selector ? "SELECTOR_DEPTH_EXCEEDED" : "DETOUR_DEPTH_EXCEEDED")
          << end;
    }
    EXPECT_EQ(LongWalk(8, selector, "proxy").status, selector ? "SELECTOR_CYCLE" : "DETOUR_CYCLE");
    EXPECT_EQ(LongWalk(8, selector, "missing").status, "OUTBOUND_NOT_FOUND");
  }
}

}  // namespace
}  // namespace korvane
