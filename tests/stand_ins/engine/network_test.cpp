// What a running service opens, over real connections: the proxy and the control API.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using nlohmann::json;
using stand_in::WebServer;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class NetworkTest : public ::testing::Test {
 protected:
  void Start() { service_.emplace(engine_, session_.configuration); }

  std::string Host() const { return "127.0.0.1:" + std::to_string(web_.port()); }
  int Fetch() { return FetchThrough(session_.proxy_port, web_.Url("/")); }

  // Every byte that comes for a request, up to the end of the connection.
  static std::string Raw(std::uint16_t port, const std::string& request) {
    net::Socket socket = Connect(port);
    SendAll(socket, request);
    return ReadToEnd(socket);
  }

  Reply GetNow(const std::string& target) { return Get(session_.clash_port, target); }
  int Choose(const std::string& member) {
    return Ask(session_.clash_port, "PUT", "/proxies/proxy", json{{"name", member}}.dump()).status;
  }
  Reply Delay(const std::string& kind, const std::string& tag, int timeout_ms = 30000) {
    return GetNow(DelayTarget(kind, tag, web_.Url("/generate_204"), timeout_ms));
  }

  EngineLibrary engine_;
  // Answers with the request as it saw it.
  WebServer web_{
      0, [](const stand_in::WebRequest& request) {
        return stand_in::WebAnswer{200, "text/plain", request.head.Text() + request.body};
      }};
  Session session_;
  std::optional<RunningService> service_;
};

TEST_F(NetworkTest, AProxiedRequestReachesTheServerAsAPlainOne) {
  Start();
  const Reply reply =
      Exchange(session_.proxy_port, "POST http://" + Host() + "/a?b=c HTTP/1.1\r\nHost: " + Host() +
                                        "\r\nProxy-Connection: keep-alive\r\nX-Own: kept\r\n"
                                        "Content-Length: 5\r\n\r\nhello");
  EXPECT_EQ(reply.status, 200);
  EXPECT_THAT(reply.body, StartsWith("POST /a?b=c HTTP/1.1\r\n"));
  EXPECT_THAT(reply.body, HasSubstr("X-Own: kept\r\n"));
  EXPECT_THAT(reply.body, Not(HasSubstr("Proxy-")));
  EXPECT_THAT(reply.body, HasSubstr("\r\n\r\nhello"));
}

TEST_F(NetworkTest, TunnelsCarryBytesBothWaysUntilEachSideHasFinished) {
  const std::string port{static_cast<char>(web_.port() >> 8), static_cast<char>(web_.port() & 255)};
  struct Row {
    std::vector<std::string> words;
    std::string last_answer;  // its beginning
  };
  const std::string greeting("\x05\x01\x00", 3);
  const std::vector<Row> rows{
      {{"CONNECT " + Host() + " HTTP/1.1\r\n\r\n"}, "HTTP/1.1 200"},
      {{greeting, greeting + std::string("\x01\x7f\x00\x00\x01", 5) + port},
       std::string("\x05\x00", 2)},
      {{greeting, greeting + "\x03\x09localhost" + port}, std::string("\x05\x00", 2)},
  };
  Start();
  for (const Row& row : rows) {
    net::Socket socket = Connect(session_.proxy_port);
    for (const std::string& word : row.words) {
      SendAll(socket, word);
    }
    SendAll(socket, "GET /tunnel HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    socket.FinishSending();
    const std::string answer = ReadToEnd(socket);
    EXPECT_THAT(answer.substr(row.words.size() == 2 ? 2 : 0), StartsWith(row.last_answer));
    EXPECT_THAT(answer, HasSubstr("GET /tunnel"));
  }
}

TEST_F(NetworkTest, WhatTheProxyCannotServeIsRefusedInTheClientsProtocol) {
  const std::uint16_t dead_port = FreePort();
  const std::string dead = "127.0.0.1:" + std::to_string(dead_port);
  const std::string greeting("\x05\x01\x00", 3);
  const std::string loopback("\x01\x7f\x00\x00\x01", 5);
  struct Row {
    const char* why;
    std::string request;
    std::string answer;  // its beginning
  };
  const auto socks = [](char code) { return std::string("\x05\x00\x05", 3) + code; };
  const std::vector<Row> rows{
      {"a dead port", "GET http://" + dead + "/ HTTP/1.1\r\n\r\n", "HTTP/1.1 502"},
      {"a tunnel to a dead port", "CONNECT " + dead + " HTTP/1.1\r\n\r\n", "HTTP/1.1 502"},
      {"a tunnel without a port", "CONNECT 127.0.0.1 HTTP/1.1\r\n\r\n", "HTTP/1.1 400"},
      {"a request to the proxy itself", "GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 400"},
      {"a scheme that is not relayed", "GET https://x/ HTTP/1.1\r\n\r\n", "HTTP/1.1 400"},
      {"a field without a colon", "GET http://x/ HTTP/1.1\r\nbad\r\n\r\n", "HTTP/1.1 400"},
      {"nobody listens",
       greeting + greeting + loopback + static_cast<char>(dead_port >> 8) +
           static_cast<char>(dead_port & 255),
       socks(5)},
      {"listening for a connection", greeting + std::string("\x05\x02\x00", 3) + loopback + "aa",
       socks(7)},
      {"an unknown kind of address", greeting + greeting + "\x02" + "aaaaaa", socks(8)},
      {"a client that insists on authentication", "\x05\x01\x02", "\x05\xff"},
  };
  Start();
  for (const Row& row : rows) {
    EXPECT_THAT(Raw(session_.proxy_port, row.request), StartsWith(row.answer)) << row.why;
  }
}

TEST_F(NetworkTest, TrafficFollowsTheChoiceAndTheFaultsOfAnOutbound) {
  session_.wishes()["outbounds"]["node_1"]["fail"] = "refused";
  Start();
  EXPECT_EQ(Fetch(), 502) << "the selector begins with the automatic group, and it with node_1";
  const struct {
    const char* member;
    int status;
  } rows[] = {{"node_2", 200}, {"block", 403}, {"direct", 200}, {"node_1", 502}};
  for (const auto& row : rows) {
    EXPECT_EQ(Choose(row.member), 204);
    EXPECT_EQ(GetNow("/proxies/proxy").Json()["now"], row.member);
    EXPECT_EQ(Fetch(), row.status) << row.member;
  }
}

TEST_F(NetworkTest, AGroupShowsItsMembersAndItsChoice) {
  session_.BeginWith("node_2");
  session_.configuration["outbounds"].push_back({{"type", "direct"}, {"tag", "\xC3\xA9 #1/delay"}});
  Start();
  EXPECT_EQ(GetNow("/version").Json()["version"], "sing-box " + engine_.Version().value());
  const json proxy = GetNow("/proxies/proxy").Json();
  EXPECT_EQ(proxy["type"], "Selector");
  EXPECT_EQ(proxy["now"], "node_2");
  EXPECT_EQ(proxy["all"], json({"auto", "node_1", "node_2", "direct", "block"}));
  const json node = GetNow("/proxies/node_1").Json();
  EXPECT_EQ(node["type"], "VLESS");
  EXPECT_FALSE(node.contains("now"));
  EXPECT_EQ(GetNow("/proxies/%C3%A9%20%231%2Fdelay").Json()["name"], "\xC3\xA9 #1/delay");
}

TEST_F(NetworkTest, RequestsThatMakeNoSenseAreRefusedAsTheEngineRefusesThem) {
  struct Row {
    const char* why;
    const char* method;
    std::string target;
    std::string body;
    int status;
    const char* message;
  };
  const std::vector<Row> rows{
      {"an unknown tag", "GET", "/proxies/nobody", "", 404, "Resource not found"},
      {"an unknown tag's delay", "GET", "/proxies/nobody/delay?timeout=1", "", 404,
       "Resource not found"},
      {"an unknown path", "GET", "/nothing", "", 404, "Resource not found"},
      {"a node is no group", "GET", "/group/node_1/delay?timeout=1", "", 404, "Resource not found"},
      {"no member", "PUT", "/proxies/proxy", R"({"name":"nobody"})", 400,
       "Selector update error: not found"},
      {"a group that chooses itself", "PUT", "/proxies/auto", R"({"name":"node_1"})", 400,
       "Must be a Selector"},
      {"a cut body", "PUT", "/proxies/proxy", R"({"name":)", 400, "Body invalid"},
      {"no time-out", "GET", "/proxies/node_1/delay?url=http://x/", "", 400, "Body invalid"},
      {"a time-out beyond 16 bits", "GET", "/proxies/node_1/delay?url=http://x/&timeout=32768", "",
       400, "Body invalid"},
      {"no plain http", "GET", "/proxies/node_1/delay?url=https://127.0.0.1/&timeout=1000", "", 503,
       "An error occurred in the delay test"},
      {"no time at all", "GET", DelayTarget("proxies", "node_1", web_.Url("/"), 0), "", 504,
       "Timeout"},
      {"no bearer", "GET", "/version", "", 401, "Unauthorized"},
  };
  Start();
  for (const Row& row : rows) {
    if (row.status == 401) {
      service_.reset();
      session_.configuration["experimental"]["clash_api"]["secret"] = "s3cret";
      Start();
    }
    const Reply reply = Ask(session_.clash_port, row.method, row.target, row.body);
    EXPECT_EQ(reply.status, row.status) << row.why;
    EXPECT_EQ(reply.Json()["message"], row.message) << row.why;
  }
  const auto bearer = [&](const std::string& field) {
    return Ask(session_.clash_port, "GET", "/version", "", field + "\r\n").status;
  };
  EXPECT_EQ(bearer("Authorization: Bearer other"), 401);
  EXPECT_EQ(bearer("authorization: Bearer s3cret"), 200);
}

TEST_F(NetworkTest, ADelayIsThatOfARealRequestAndTellsHowItFailed) {
  session_.wishes()["outbounds"] = {{"node_1", {{"delay_ms", 30}}},
                                    {"node_2", {{"fail", "timeout"}}}};
  Start();
  const Reply reply = Delay("proxies", "node_1");
  EXPECT_EQ(reply.status, 200);
  EXPECT_GE(reply.Json()["delay"], 30);
  EXPECT_EQ(GetNow("/proxies/node_1").Json()["history"][0]["delay"], reply.Json()["delay"]);
  EXPECT_EQ(web_.requests(), 1);
  EXPECT_EQ(Delay("proxies", "node_2", 20).status, 504);
  EXPECT_EQ(Delay("proxies", "block").status, 503);
  EXPECT_EQ(web_.requests(), 1);
}

TEST_F(NetworkTest, AGroupsAnswerHoldsTheMembersThatWereReachedAndItTakesTheFastest) {
  session_.wishes()["outbounds"] = {{"node_1", {{"report_delay_ms", 90}}},
                                    {"node_2", {{"report_delay_ms", 40}}},
                                    {"direct", {{"fail", "refused"}}}};
  Start();
  EXPECT_EQ(GetNow("/proxies/auto").Json()["now"], "node_1");
  EXPECT_EQ(Delay("group", "auto").Json(), json({{"node_1", 90}, {"node_2", 40}}));
  EXPECT_EQ(GetNow("/proxies/auto").Json()["now"], "node_2");
  EXPECT_EQ(Delay("group", "proxy").Json(), json({{"auto", 40}, {"node_1", 90}, {"node_2", 40}}));
  service_.reset();
  session_.wishes()["zero_for_failed_members"] = true;
  Start();
  EXPECT_EQ(Delay("group", "proxy").Json(),
            json({{"auto", 90}, {"node_1", 90}, {"node_2", 40}, {"direct", 0}, {"block", 0}}));
}

// Each member's request is answered only when both have come.
TEST_F(NetworkTest, TheMembersOfAGroupAreProbedAtOnce) {
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

TEST_F(NetworkTest, EachKindOfScriptedAnswerSendsWhatItsNameSays) {
  const std::string body = R"({"now":"node_1"})";
  struct Row {
    const char* kind;
    const char* beginning;
    std::string ending;
  };
  const std::vector<Row> rows{
      {"answer", "HTTP/1.1 302 Found\r\n", "Content-Length: 19\r\n\r\n   " + body},
      {"chunked", "HTTP/1.1 302 Found\r\n", "chunked\r\n\r\n13\r\n   " + body + "\r\n0\r\n\r\n"},
      {"until_close", "HTTP/1.1 302 Found\r\n", "application/json\r\n\r\n   " + body},
      {"cut", "HTTP/1.1 302 Found\r\n", "Content-Length: 19\r\n\r\n   " + body.substr(0, 6)},
      {"reset", "HTTP/1.1 302 Found\r\n", "Content-Length: 19\r\n\r\n   " + body.substr(0, 6)},
      {"cut_chunked", "HTTP/1.1 302 Found\r\n", "chunked\r\n\r\n14\r\n   " + body},
      {"drip", "HTTP/1.1 302 Found\r\n", "Content-Length: 19\r\n\r\n   " + body},
      {"garbage", "\x01\x02 this is no answer", body},
      {"nothing", "", ""},
      {"close", "", ""},
  };
  json& answers = session_.wishes()["clash_answers"];
  for (const Row& row : rows) {
    answers.push_back({{"path", std::string("/") + row.kind},
                       {"kind", row.kind},
                       {"status", 302},
                       {"headers", {{"X-Own", "1"}}},
                       {"body", body},
                       {"pad_bytes", 3},
                       {"close_after_ms", 20},
                       {"interval_ms", 0}});
  }
  Start();
  for (const Row& row : rows) {
    const std::string bytes =
        Raw(session_.clash_port, std::string("GET /") + row.kind + "?query=1 HTTP/1.1\r\n\r\n");
    EXPECT_THAT(bytes, StartsWith(row.beginning)) << row.kind;
    EXPECT_TRUE(bytes.ends_with(row.ending)) << row.kind << ": " << bytes;
    EXPECT_EQ(bytes.find("\r\nX-Own: 1\r\n") != std::string::npos, bytes.starts_with("HTTP"));
  }
}

TEST_F(NetworkTest, AScriptThatIsUsedUpGivesWayToTheNextAndThenToTheTruth) {
  session_.wishes()["clash_answers"] = {
      {{"path", "/proxies/proxy"}, {"times", 1}, {"body", R"({"now":"first"})"}},
      {{"path", "/proxies/proxy"}, {"times", 1}, {"body", R"({"now":"second"})"}}};
  Start();
  for (const char* now : {"first", "second", "auto", "auto"}) {
    EXPECT_EQ(GetNow("/proxies/proxy").Json()["now"], now);
  }
}

// The test hangs where a close would.
TEST_F(NetworkTest, ACloseEndsEveryKindOfConnectionAndFreesThePorts) {
  struct Row {
    const char* why;
    std::string first_bytes;
    bool to_clash;
  };
  const auto delay = [&](const char* kind, const char* tag) {
    return "GET " + DelayTarget(kind, tag, web_.Url("/"), 30000) + " HTTP/1.1\r\n\r\n";
  };
  const std::vector<Row> rows{
      {"not a byte yet", "", false},
      {"a half-sent head", "GET http://", false},
      {"a half-sent greeting", "\x05", false},
      {"an open tunnel", "CONNECT " + Host() + " HTTP/1.1\r\n\r\n", false},
      {"a dial that never ends", "GET http://" + Host() + "/ HTTP/1.1\r\n\r\n", false},
      {"a running delay test", delay("proxies", "node_1"), true},
      {"a running group test", delay("group", "auto"), true},
      {"a silent answer", "GET /nothing HTTP/1.1\r\n\r\n", true},
      {"a dripping answer", "GET /drip HTTP/1.1\r\n\r\n", true},
      {"an endless head", "GET /endless_headers HTTP/1.1\r\n\r\n", true},
      {"a body that nobody reads", "GET /answer HTTP/1.1\r\n\r\n", true},
  };
  session_.wishes()["outbounds"]["node_1"]["fail"] = "timeout";
  json& answers = session_.wishes()["clash_answers"];
  for (const std::string kind : {"nothing", "drip", "endless_headers", "answer"}) {
    answers.push_back({{"path", "/" + kind}, {"kind", kind}, {"interval_ms", 60000}});
  }
  answers.back()["pad_bytes"] = 64 * 1024 * 1024;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    session_.BeginWith(row.why == std::string("a dial that never ends") ? "node_1" : "direct");
    Start();
    net::Socket socket = Connect(row.to_clash ? session_.clash_port : session_.proxy_port);
    SendAll(socket, row.first_bytes);
    // A second connection that is served tells that the first was taken before.
    EXPECT_EQ(GetNow("/version").status, 200);
    service_->Close();
    std::string rest;
    while (socket.Receive(rest, 1 << 20, Patience()) == net::IoStatus::kDone) {
      rest.clear();
    }
  }
  Start();
}

}  // namespace
}  // namespace korvane::test
