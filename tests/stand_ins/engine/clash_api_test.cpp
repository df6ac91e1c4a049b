// The control API of a running service, as the host and its user interface ask it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using nlohmann::json;
using stand_in::WebServer;

class ClashApiTest : public ::testing::Test {
 protected:
  void Start() { service_.emplace(engine_, session_.configuration); }

  Reply GetNow(const std::string& target) { return Get(session_.clash_port, target); }
  Reply Put(const std::string& target, const std::string& body) {
    return Ask(session_.clash_port, "PUT", target, body);
  }
  Reply Delay(const std::string& kind, const std::string& tag, int timeout_ms = 30000) {
    return GetNow(DelayTarget(kind, tag, web_.Url("/generate_204"), timeout_ms));
  }

  EngineLibrary engine_;
  WebServer web_{0};
  Session session_;
  std::optional<RunningService> service_;
};

TEST_F(ClashApiTest, TheVersionIsTheLibrarys) {
  Start();
  const Reply reply = GetNow("/version");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Json()["version"], "sing-box " + engine_.Version().value());
}

TEST_F(ClashApiTest, AGroupShowsItsMembersAndItsChoice) {
  Start();
  const json proxy = GetNow("/proxies/proxy").Json();
  EXPECT_EQ(proxy["type"], "Selector");
  EXPECT_EQ(proxy["now"], "auto");
  EXPECT_EQ(proxy["all"], json({"auto", "node_1", "node_2", "direct", "block"}));
  EXPECT_EQ(proxy["history"], json::array());
  const json node = GetNow("/proxies/node_1").Json();
  EXPECT_EQ(node["type"], "VLESS");
  EXPECT_FALSE(node.contains("now"));
  EXPECT_EQ(GetNow("/proxies").Json()["proxies"].size(), 6U);
}

TEST_F(ClashApiTest, TheDefaultOfASelectorIsWhereItBegins) {
  session_.BeginWith("node_2");
  Start();
  EXPECT_EQ(GetNow("/proxies/proxy").Json()["now"], "node_2");
}

TEST_F(ClashApiTest, AChoiceHoldsUntilTheNext) {
  Start();
  EXPECT_EQ(Put("/proxies/proxy", R"({"name":"node_2"})").status, 204);
  EXPECT_EQ(GetNow("/proxies/proxy").Json()["now"], "node_2");
  EXPECT_EQ(Put("/proxies/proxy", R"({"name":"auto"})").status, 204);
  EXPECT_EQ(GetNow("/proxies/proxy").Json()["now"], "auto");
}

TEST_F(ClashApiTest, RequestsThatMakeNoSenseAreRefusedAsTheEngineRefusesThem) {
  struct Row {
    const char* why;
    const char* method;
    std::string target;
    std::string body;
    int status;
    const char* message;
  };
  const std::array rows{
      Row{"an unknown tag", "GET", "/proxies/nobody", "", 404, "Resource not found"},
      Row{"an unknown tag's delay", "GET", "/proxies/nobody/delay?timeout=1", "", 404,
          "Resource not found"},
      Row{"an unknown path", "GET", "/nothing", "", 404, "Resource not found"},
      Row{"a node is no group", "GET", "/group/node_1/delay?timeout=1", "", 404,
          "Resource not found"},
      Row{"no member", "PUT", "/proxies/proxy", R"({"name":"nobody"})", 400,
          "Selector update error: not found"},
      Row{"a group that chooses itself", "PUT", "/proxies/auto", R"({"name":"node_1"})", 400,
          "Must be a Selector"},
      Row{"a body of another shape", "PUT", "/proxies/proxy", R"(["node_1"])", 400, "Body invalid"},
      Row{"a cut body", "PUT", "/proxies/proxy", R"({"name":)", 400, "Body invalid"},
      Row{"no time-out", "GET", "/proxies/node_1/delay?url=http://x/", "", 400, "Body invalid"},
      Row{"a time-out beyond 16 bits", "GET", "/proxies/node_1/delay?url=http://x/&timeout=32768",
          "", 400, "Body invalid"},
      Row{"no plain http", "GET", "/proxies/node_1/delay?url=https://127.0.0.1/&timeout=1000", "",
          503, "An error occurred in the delay test"},
      Row{"no time at all", "GET", DelayTarget("proxies", "node_1", web_.Url("/"), 0), "", 504,
          "Timeout"},
  };
  Start();
  for (const Row& row : rows) {
    const Reply reply = Ask(session_.clash_port, row.method, row.target, row.body);
    EXPECT_EQ(reply.status, row.status) << row.why;
    EXPECT_EQ(reply.Json()["message"], row.message) << row.why;
  }
  EXPECT_EQ(Ask(session_.clash_port, "DELETE", "/proxies/proxy").status, 405);
}

TEST_F(ClashApiTest, WithASecretOnlyItsBearerIsServed) {
  session_.configuration["experimental"]["clash_api"]["secret"] = "s3cret";
  Start();
  const auto with = [&](const std::string& fields) {
    return Ask(session_.clash_port, "GET", "/version", "", fields).status;
  };
  EXPECT_EQ(with(""), 401);
  EXPECT_EQ(with("Authorization: Bearer other\r\n"), 401);
  EXPECT_EQ(with("authorization: Bearer s3cret\r\n"), 200);
}

TEST_F(ClashApiTest, OneConnectionServesManyRequests) {
  Start();
  net::Socket socket = Connect(session_.clash_port);
  net::HttpReader reader(socket);
  SendAll(socket, "GET /version HTTP/1.1\r\n\r\nGET /proxies/auto HTTP/1.1\r\n\r\n");
  for (int i = 0; i < 2; ++i) {
    net::HttpHead head;
    std::string body;
    ASSERT_EQ(reader.ReadHead(head, Patience()), net::IoStatus::kDone);
    EXPECT_EQ(head.Status(), 200);
    ASSERT_EQ(reader.ReadAnswerBody(head, body, 10000, Patience()), net::IoStatus::kDone);
  }
}

TEST_F(ClashApiTest, TagsArePercentDecodedWhateverTheyHold) {
  const std::string tag = "\xE6\x97\xA5\xE6\x9C\xAC #1/delay";
  session_.configuration["outbounds"].push_back({{"type", "direct"}, {"tag", tag}});
  Start();
  const std::string encoded = "%E6%97%A5%E6%9C%AC%20%231%2Fdelay";
  EXPECT_EQ(GetNow("/proxies/" + encoded).Json()["name"], tag);
  EXPECT_EQ(Delay("proxies", encoded).status, 200);
}

TEST_F(ClashApiTest, ADelayIsThatOfARealRequestThroughTheOutbound) {
  session_.wishes()["outbounds"]["node_1"]["delay_ms"] = 30;
  Start();
  const Reply reply = Delay("proxies", "node_1");
  EXPECT_EQ(reply.status, 200);
  EXPECT_GE(reply.Json()["delay"], 30);
  EXPECT_EQ(web_.requests(), 1);
  EXPECT_EQ(GetNow("/proxies/node_1").Json()["history"][0]["delay"], reply.Json()["delay"]);
}

TEST_F(ClashApiTest, FailedDelayTestsTellHowTheyFailed) {
  session_.wishes()["outbounds"] = {{"node_1", {{"fail", "timeout"}}},
                                    {"node_2", {{"fail", "refused"}}},
                                    {"direct", {{"delay_ms", 86400000}}}};
  Start();
  EXPECT_EQ(Delay("proxies", "node_1", 20).status, 504);
  EXPECT_EQ(Delay("proxies", "direct", 20).status, 504);
  EXPECT_EQ(Delay("proxies", "node_2").status, 503);
  EXPECT_EQ(Delay("proxies", "block").status, 503);
  EXPECT_EQ(web_.requests(), 0);
}

TEST_F(ClashApiTest, AGroupsAnswerHoldsTheMembersThatWereReached) {
  session_.wishes()["outbounds"] = {{"node_1", {{"report_delay_ms", 80}}},
                                    {"node_2", {{"fail", "refused"}}},
                                    {"direct", {{"report_delay_ms", 25}}}};
  Start();
  EXPECT_EQ(Delay("group", "proxy").Json(), json({{"auto", 80}, {"node_1", 80}, {"direct", 25}}));
}

TEST_F(ClashApiTest, FailedMembersCanBeToldToStandThereWithZero) {
  session_.wishes() = {{"outbounds", {{"node_1", {{"fail", "refused"}}}}},
                       {"zero_for_failed_members", true}};
  session_.wishes()["outbounds"]["node_2"]["report_delay_ms"] = 7;
  Start();
  EXPECT_EQ(Delay("group", "auto").Json(), json({{"node_1", 0}, {"node_2", 7}}));
}

// Each member's request is answered only when all of them have come.
TEST_F(ClashApiTest, TheMembersOfAGroupAreProbedAtOnce) {
  std::atomic<int> waiting{0};
  WebServer meeting(0, [&](const stand_in::WebRequest&) {
    ++waiting;
    while (waiting < 2) {
      std::this_thread::yield();
    }
    return stand_in::WebAnswer{204, "", ""};
  });
  session_.wishes()["probe_url"] = meeting.Url("/");
  Start();
  EXPECT_EQ(Delay("group", "auto").Json().size(), 2U);
}

TEST_F(ClashApiTest, AnAutomaticGroupTakesTheFastestOnceItWasMeasured) {
  session_.wishes()["outbounds"] = {{"node_1", {{"report_delay_ms", 90}}},
                                    {"node_2", {{"report_delay_ms", 40}}}};
  Start();
  EXPECT_EQ(GetNow("/proxies/auto").Json()["now"], "node_1");
  EXPECT_EQ(Delay("group", "auto").Json(), json({{"node_1", 90}, {"node_2", 40}}));
  EXPECT_EQ(GetNow("/proxies/auto").Json()["now"], "node_2");
}

TEST_F(ClashApiTest, ChainsOfGroupsAreFollowedToTheirLeaf) {
  json& outbounds = session_.configuration["outbounds"];
  constexpr int kDepth = 200;
  for (int i = 0; i < kDepth; ++i) {
    const std::string below = i == 0 ? "node_2" : "auto_" + std::to_string(i - 1);
    outbounds.push_back({{"type", i % 2 == 0 ? "selector" : "urltest"},
                         {"tag", "auto_" + std::to_string(i)},
                         {"outbounds", {below, "block"}}});
  }
  session_.configuration["route"]["final"] = "auto_199";
  session_.wishes()["outbounds"]["node_2"]["report_delay_ms"] = 33;
  Start();
  EXPECT_EQ(Delay("proxies", "auto_199").Json()["delay"], 33);
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 200);
}

TEST_F(ClashApiTest, TrafficFollowsTheChoice) {
  Start();
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 200);
  Put("/proxies/proxy", R"({"name":"block"})");
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 403);
  Put("/proxies/proxy", R"({"name":"direct"})");
  EXPECT_EQ(FetchThrough(session_.proxy_port, web_.Url("/")), 200);
}

TEST_F(ClashApiTest, WithoutAControllerNothingListens) {
  session_.configuration["experimental"].erase("clash_api");
  Start();
  std::string error;
  EXPECT_TRUE(net::Listener::Open("127.0.0.1", session_.clash_port, nullptr, error)) << error;
}

}  // namespace
}  // namespace korvane::test
