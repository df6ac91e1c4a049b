#include "engine_api/clash_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "platform/os.h"
#include "support/fake_loopback_http.h"

namespace korvane::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBase[] = "http://127.0.0.1:9090";

class ClashApi : public testing::Test {
 protected:
  ClashApi() : scope_(WithHttp(http)) {}

  // Makes a group's answer name its member.
  void Now(const std::string& tag, const std::string& member) {
    http.answers["/proxies/" + tag] = R"({"type":"Selector","now":")" + member + R"("})";
  }

  FakeLoopbackHttp http;

 private:
  static platform::Os WithHttp(platform::LoopbackHttp& http) {
    platform::Os os = platform::RealOs();
    os.loopback_http = &http;
    return os;
  }
  platform::ScopedOs scope_;
};

TEST(ExtractClashApiPort, TakesTheFirstControllerOnLoopback) {
  struct Row {
    const char* config;
    std::optional<int> port;
  };
  const Row rows[] = {
      {R"({"external_controller":"127.0.0.1:9090"})", 9090},
      {R"({"external_controller":"0.0.0.0:1","external_controller":"127.0.0.1:2"})", 2},
      {R"({"external_controller":"127.0.0.1:70000"})", 70000},
      {R"({"external_controller":"0.0.0.0:9090"})", std::nullopt},
      {R"({"external_controller":"127.0.0.1:"})", std::nullopt},
      {"{}", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ExtractClashApiPort(row.config), row.port) << row.config;
  }
  EXPECT_THROW(ExtractClashApiPort(R"("external_controller":"127.0.0.1:2147483648")"),
               std::out_of_range);
}

TEST(FindInboundListenPort, TakesThePortThatStandsNextBehindTheTag) {
  struct Row {
    const char* config;
    std::optional<int> port;
  };
  const Row rows[] = {
      {R"({"tag":"mixed-in","listen_port":2080})", 2080},
      {R"({"tag": "mixed-in", "listen_port" : 2080})", 2080},
      {R"({"tag": "mixed-in"},{"tag":"mixed-in"},{"tag":"other","listen_port":7})", 7},
      {R"({"tag":  "mixed-in","listen_port":2080})", std::nullopt},
      {R"({"listen_port":2080,"tag":"mixed-in"})", std::nullopt},
      {R"({"tag":"mixed-in-2","listen_port":2080})", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FindInboundListenPort(row.config, "mixed-in"), row.port) << row.config;
  }
  EXPECT_THROW(FindInboundListenPort(R"("tag":"m""listen_port":99999999999)", "m"),
               std::out_of_range);
}

TEST(UrlEncodeTag, LeavesOnlyUnreservedAsciiAsItIs) {
  EXPECT_EQ(UrlEncodeTag("azAZ09-._~"), "azAZ09-._~");
  EXPECT_EQ(UrlEncodeTag("\xe6\x97\xa5\xe6\x9c\xac #1"), "%E6%97%A5%E6%9C%AC%20%231");
  EXPECT_EQ(UrlEncodeTag(std::string("\0/?%\xe9\xff", 6)), "%00%2F%3F%25%E9%FF");
}

TEST(JsonExtract, TakesTheFirstValueBehindTheKeyAndLeavesEscapes) {
  EXPECT_EQ(JsonExtractInt(R"({"axb":1,"a.b":2})", "a.b"), 2);
  EXPECT_EQ(JsonExtractInt(R"({"x":{"delay":-1},"delay":5})", "delay"), -1);
  EXPECT_EQ(JsonExtractInt(R"({"delay":"5"})", "delay"), std::nullopt);
  EXPECT_EQ(JsonExtractInt(R"({"delay":1.9})", "delay"), 1);
  EXPECT_THROW(JsonExtractInt(R"({"delay":2147483648})", "delay"), std::out_of_range);
  EXPECT_EQ(JsonExtractString(R"({"now":""})", "now"), "");
  EXPECT_EQ(JsonExtractString(R"({"now":"a\"b"})", "now"), "a\\");
  EXPECT_EQ(JsonExtractString(R"({"now":"\u65e5"})", "now"), "\\u65e5");
  EXPECT_EQ(JsonExtractString(R"({"now":null})", "now"), std::nullopt);
}

TEST(PickLowest, ZeroNeverWinsAndTheFirstOfATieDoes) {
  const auto all = PickLowestLatency(R"({"a":0,"b":120,"c":120,"d":80,"e":80})");
  EXPECT_EQ(all.tag, "d");
  EXPECT_EQ(all.latency, 80);
  const auto nodes = PickLowestNodeLatency(R"({"proxy":50,"node_2":90,"node_x":1})");
  EXPECT_EQ(nodes.tag, "node_2");
  EXPECT_EQ(nodes.latency, 90);
  for (const char* json : {"{}", "", R"({"a":0})", R"({"a":-5})", R"({"a":2147483647})"}) {
    EXPECT_EQ(PickLowestLatency(json).tag, "") << json;
    EXPECT_EQ(PickLowestLatency(json).latency, -1) << json;
  }
  EXPECT_THROW(PickLowestLatency(R"({"a":1,"b":2147483648})"), std::out_of_range);
}

TEST_F(ClashApi, WalksAutomaticGroupsToTheLeaf) {
  Now("to_node", "node_1");
  Now("to_auto", "auto_1");
  Now("auto_1", "node_3");
  Now("to_other", "automatic");  // not one of the automatic names
  Now("to_two", "auto");
  Now("auto", "auto_1");
  Now("to_empty", "");
  Now("to_lost", "auto_lost");
  Now("to_hollow", "auto_hollow");
  Now("auto_hollow", "");
  Now("to_four", "auto_a");
  Now("auto_a", "auto_b");
  Now("auto_b", "auto_c");
  Now("auto_c", "auto_d");
  Now("auto_d", "node_9");
  Now("to_three", "auto_b");
  http.answers["/proxies/not_a_group"] = R"({"type":"Direct"})";
  struct Row {
    const char* start;
    bool found;
    const char* leaf;
    const char* group;
  };
  const Row rows[] = {
      {"to_node", true, "node_1", ""},
      {"to_auto", true, "node_3", "auto_1"},
      {"to_other", true, "automatic", ""},
      {"to_two", true, "node_3", "auto_1"},
      {"to_empty", true, "", ""},
      {"to_lost", true, "", "auto_lost"},
      {"to_hollow", true, "", "auto_hollow"},
      {"to_four", true, "", "auto_d"},
      {"to_three", true, "node_9", "auto_d"},
      {"not_a_group", false, "", ""},
      {"absent", false, "", ""},
      {"", false, "", ""},
  };
  for (const Row& row : rows) {
    const auto resolution = ResolveSelectorLeaf(kBase, row.start);
    EXPECT_EQ(resolution.found, row.found) << row.start;
    EXPECT_EQ(resolution.leaf_tag, row.leaf) << row.start;
    EXPECT_EQ(resolution.auto_group_tag, row.group) << row.start;
  }
}

TEST_F(ClashApi, EachRequestHasItsTargetAndItsTimeout) {
  const std::string query = std::string("/delay?url=") + kDefaultProbeUrl + "&timeout=";
  EXPECT_FALSE(ResolveSelectorLeaf(kBase, "").found);
  EXPECT_EQ(ProbeProxyDelay(kBase, "", 3000), -1);
  EXPECT_FALSE(ProbeClashApiReachable(0));
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
  GetSelectorNow(kBase, "a b");
  EXPECT_FALSE(ProbeClashApiReachable(9090));
  EXPECT_THAT(http.TakeRequests(),
              ElementsAre("9090 /proxies/a%20b within 3000", "9090 /version within 1200"));
  struct Row {
    int timeout_ms;
    const char* sent;
    const char* waited;
  };
  const Row rows[] = {{3500, "3500", "4000"},
                      {4000, "4000", "4000"},
                      {4001, "4001", "5001"},
                      {10000, "10000", "11000"},
                      {0, "0", "4000"},
                      {-5, "-5", "4000"},
                      {std::numeric_limits<int>::max(), "2147483647", "2147483647"}};
  for (const Row& row : rows) {
    ProbeProxyDelay(kBase, "n/1", row.timeout_ms);
    ProbeGroupDelays(kBase, "g/1", row.timeout_ms);
    EXPECT_THAT(http.TakeRequests(),
                ElementsAre("9090 /proxies/n%2F1" + query + row.sent + " within " + row.waited,
                            "9090 /group/g%2F1" + query + row.sent + " within " + row.waited));
  }
}

TEST_F(ClashApi, DelayIsTheEnginesWordOrMinusOne) {
  struct Row {
    const char* answer;
    int delay;
  };
  for (const Row& row :
       {Row{R"({"delay":42})", 42}, Row{R"({"delay":-1})", -1}, Row{R"({"delay":0})", 0},
        Row{R"({"message":"no"})", -1}, Row{"garbage", -1}, Row{"", -1}}) {
    http.answers["/proxies/n/delay"] = row.answer;
    EXPECT_EQ(ProbeProxyDelay(kBase, "n", 3000), row.delay) << row.answer;
  }
  http.answers["/version"] = "x";
  EXPECT_TRUE(ProbeClashApiReachable(9090));
  http.answers["/proxies/n/delay"] = R"({"delay":99999999999})";
  EXPECT_THROW(ProbeProxyDelay(kBase, "n", 3000), std::out_of_range);
}

}  // namespace
}  // namespace korvane::test
