// The two methods that ask the running engine: what they answer, on which thread, and that they
// answer once whatever becomes of the tunnel meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "engine_api/clash_api.h"
#include "vpn/tunnel_fixture.h"
#include "vpn/vpn_state.h"

namespace korvane::test {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kVpnChannel[] = "com.sundrelak.korvane/vpn";
constexpr char kDroppedTest[] = "VPN disconnected during URLTest";

std::string ConfigWithController(const std::string& controller) {
  return R"({"log":{},"inbounds":[{"type":"mixed","tag":"mixed-in","listen_port":2080}],)"
         R"("outbounds":[],"experimental":{"clash_api":{"external_controller":")" +
         controller + R"("}}})";
}

// Does something in place of a wait.
class ActingClock : public FakeClock {
 public:
  std::function<void()> act;
  void SleepMilliseconds(std::uint32_t /*milliseconds*/) override { act(); }
};

class EngineApiMethods : public TunnelTest {
 protected:
  EngineApiMethods() {
    Register();
    http.answers = {{"/proxies/proxy", R"({"now":"auto"})"},
                    {"/proxies/auto", R"({"now":"node_1"})"},
                    {"/proxies/node_1/delay", R"({"delay":70})"},
                    {"/group/auto/delay", R"({"node_1":60,"node_2":50})"},
                    {"/group/proxy/delay", R"({"auto":40})"}};
  }

  void Connect(const std::string& controller = "127.0.0.1:9090") {
    ASSERT_EQ(
        Call("loadVPNPreference", EncodableMap{{"config", ConfigWithController(controller)}}).kind,
        "success");
  }

  // A stop as the interface asks for one, from whatever thread this is, to its end.
  void Stop() { dart.Await(dart.Deliver(kVpnChannel, "stopVPN", {})); }

  // Calls, and expects one answer from a worker.
  Answer Ask(const std::string& method, const EncodableValue& arguments = EncodableMap{}) {
    const int delivery = dart.Deliver(kVpnChannel, method, arguments);
    Answer answer = dart.Await(delivery);
    EXPECT_FALSE(answer.on_window_thread) << method;
    EXPECT_FALSE(answer.has_details) << method;
    EXPECT_EQ(dart.Replies(delivery), 1) << method;
    EXPECT_FALSE(errors.HasText("Only one of Success")) << method;
    return answer;
  }

  void ExpectError(const Answer& answer, const std::string& code, const std::string& message) {
    EXPECT_EQ(answer.kind, "error") << code;
    EXPECT_EQ(answer.code, code);
    EXPECT_EQ(answer.message, message);
  }
};

TEST_F(EngineApiMethods, AnswerFromTheEngineOnTheirOwnThread) {
  Connect();
  EXPECT_EQ(Ask("performUrlTest").value, EncodableValue(std::int32_t{70}));
  const EncodableValue info(EncodableMap{{"selectedTag", "node_1"},
                                         {"selectedLatency", std::int32_t{60}},
                                         {"allLatencies", R"({"node_1":60,"node_2":50})"}});
  EXPECT_EQ(Ask("getAutoSelectorInfo").value, info);
  EXPECT_EQ(Ask("getAutoSelectorInfo", {}).value, info);
  EXPECT_EQ(Ask("getAutoSelectorInfo", EncodableValue("no map")).value, info);
  EXPECT_THAT(clock.waits(), ElementsAre(500, 500, 500));

  http.answers["/proxies/proxy"] = "{\"now\":\"n\xff\"}";
  const Answer mended = Ask("getAutoSelectorInfo");
  EXPECT_EQ(*flutter::FindIf<std::string>(*mended.value.GetIf<EncodableMap>(), "selectedTag"),
            "n\u00FF")
      << "a channel takes UTF-8 alone";
}

TEST_F(EngineApiMethods, ArgumentsAreReadByExactTypeAndHaveDefaults) {
  Connect();
  const std::string probe = std::string("/delay?url=") + kDefaultProbeUrl + "&timeout=";
  struct Row {
    EncodableMap arguments;
    const char* tag;
    const char* timeout;
    const char* waited;
  };
  const Row rows[] = {
      {{}, "proxy", "5000", "6000"},
      {{{"timeout", std::int64_t{7000}}, {"selectorTag", ""}}, "proxy", "5000", "6000"},
      {{{"timeout", "7000"}, {"selectorTag", std::int32_t{1}}}, "proxy", "5000", "6000"},
      {{{"timeout", std::int32_t{2000}}, {"selectorTag", "a b"}}, "a%20b", "2000", "4000"},
      {{{"timeout", std::int32_t{-1}}, {"selectorTag", "x"}}, "x", "3000", "4000"},
      {{{"nodeConfig", "{}"}, {"testUrl", "http://h/"}}, "proxy", "5000", "6000"},
  };
  http.answers.clear();
  for (const Row& row : rows) {
    ExpectError(Ask("performUrlTest", row.arguments), "URL_TEST_FAILED",
                "Group delay probe unreachable");
    EXPECT_THAT(http.TakeRequests(),
                ElementsAre("9090 /proxies/" + std::string(row.tag) + " within 3000",
                            "9090 /group/" + std::string(row.tag) + probe + row.timeout +
                                " within " + row.waited));
    ExpectError(Ask("getAutoSelectorInfo", row.arguments), "API_UNAVAILABLE",
                "Clash API selector not responding");
    EXPECT_THAT(http.TakeRequests(),
                ElementsAre("9090 /proxies/" + std::string(row.tag) + " within 3000"));
  }
}

TEST_F(EngineApiMethods, SessionWithoutAnApiIsToldSo) {
  Connect("0.0.0.0:9090");
  for (const char* method : {"performUrlTest", "getAutoSelectorInfo"}) {
    ExpectError(Ask(method), "API_UNAVAILABLE", "Clash API is disabled for this session");
  }
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
}

TEST_F(EngineApiMethods, NumbersBeyondAnIntAreAnsweredAndNotThrown) {
  Connect("127.0.0.1:99999999999");
  ExpectError(Ask("performUrlTest"), "URL_TEST_EXCEPTION", "stoi");
  ExpectError(Ask("getAutoSelectorInfo"), "EXCEPTION", "stoi");
  Connect();
  http.answers["/proxies/node_1/delay"] = R"({"delay":99999999999})";
  http.answers["/group/auto/delay"] = R"({"node_1":99999999999})";
  ExpectError(Ask("performUrlTest"), "URL_TEST_EXCEPTION", "stoi");
  ExpectError(Ask("getAutoSelectorInfo"), "EXCEPTION", "stoi");
}

// Each stop runs on another worker, which couldn't end if the question held lifecycle_mutex.
TEST_F(EngineApiMethods, TunnelThatDropsDuringARequestShowsAtTheNextCheckpoint) {
  http.answers["/proxies/node_1/delay"] = R"({"delay":0})";
  const struct {
    const char* dropped_at;
    std::size_t requests;
    bool answered;  // behind the last checkpoint
  } rows[] = {{"/proxies/proxy", 2, false}, {"/group/proxy/delay", 4, true}};
  for (const auto& row : rows) {
    Connect();
    http.TakeRequests();
    http.on_request = [&](const std::string& path) {
      if (path == row.dropped_at) {
        Stop();
      }
    };
    const Answer answer = Ask("performUrlTest");
    http.on_request = nullptr;
    EXPECT_EQ(answer.message, row.answered ? "" : kDroppedTest);
    EXPECT_EQ(answer.kind, row.answered ? "success" : "error");
    EXPECT_EQ(http.TakeRequests().size(), row.requests) << row.dropped_at;
  }
}

TEST_F(EngineApiMethods, TunnelThatDropsBeforeTheFirstRequestEndsTheTest) {
  Connect();
  int delivery = 0;
  {
    RecursiveMutexLock lock(vpn_state().lifecycle_mutex);  // holds the worker up
    delivery = dart.Deliver(kVpnChannel, "performUrlTest", EncodableMap{});
    vpn_state().service_id = 0;
  }
  ExpectError(dart.Await(delivery), "URL_TEST_FAILED", kDroppedTest);
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
}

TEST_F(EngineApiMethods, WhatGoesWrongDuringTheWaitIsToldByTheSelectorInfo) {
  ActingClock acting;
  platform::Os os = platform::os();
  os.clocks = &acting;
  const platform::ScopedOs in_force(os);
  Connect();
  acting.act = [] { throw 5; };
  ExpectError(Ask("getAutoSelectorInfo"), "EXCEPTION", "Unknown error occurred");
  acting.act = [this] { Stop(); };
  ExpectError(Ask("getAutoSelectorInfo"), "VPN_NOT_CONNECTED",
              "VPN disconnected before querying auto selector info");
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
