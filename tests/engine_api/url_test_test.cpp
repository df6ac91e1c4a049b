#include "engine_api/url_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine_api/clash_api.h"
#include "platform/os.h"
#include "support/fake_clock.h"
#include "support/fake_loopback_http.h"

namespace korvane::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kConfig[] = R"({"external_controller":"127.0.0.1:9090"})";
constexpr char kTooLarge[] = R"({"external_controller":"127.0.0.1:99999999999"})";

class UrlTest : public testing::Test {
 protected:
  UrlTest() : scope_(WithFakes(*this)) {}

  void Now(const std::string& tag, const std::string& member) {
    http.answers["/proxies/" + tag] = R"({"now":")" + member + R"("})";
  }
  void Delay(const std::string& tag, int milliseconds) {
    http.answers["/proxies/" + tag + "/delay"] =
        R"({"delay":)" + std::to_string(milliseconds) + "}";
  }
  void GroupDelays(const std::string& tag, const std::string& body) {
    http.answers["/group/" + tag + "/delay"] = body;
  }

  // "TAG LATENCY ALL", or "CODE: message".
  std::string Info(const std::string& tag = "proxy", bool connected = true) {
    const auto answer = GetAutoSelectorInfo(kConfig, tag, [&] { return connected; });
    if (const auto* error = std::get_if<EngineApiError>(&answer)) {
      return error->code + ": " + error->message;
    }
    const auto& info = std::get<AutoSelectorInfo>(answer);
    return info.selected_tag + " " + std::to_string(info.selected_latency) + " " +
           info.all_latencies;
  }

  // The latency, or "CODE: message".
  std::string Test(int timeout_ms = 5000, const std::string& tag = "proxy",
                   const std::string& dropped_at = {}) {
    const auto answer = PerformUrlTest(kConfig, tag, timeout_ms, [&](const char* stage) {
      stages.emplace_back(stage);
      return stage != dropped_at;
    });
    if (const auto* error = std::get_if<EngineApiError>(&answer)) {
      return error->code + ": " + error->message;
    }
    return std::to_string(std::get<int>(answer));
  }

  static std::string Asked(const std::string& target, const std::string& timeout,
                           const std::string& waited) {
    return "9090 " + target + "/delay?url=" + kDefaultProbeUrl + "&timeout=" + timeout +
           " within " + waited;
  }

  FakeLoopbackHttp http;
  FakeClock clock;
  std::vector<std::string> stages;

 private:
  static platform::Os WithFakes(UrlTest& test) {
    platform::Os os = platform::RealOs();
    os.loopback_http = &test.http;
    os.clocks = &test.clock;
    return os;
  }
  platform::ScopedOs scope_;
};

TEST_F(UrlTest, InfoWaitsAndThenLooksOnceWhetherTheTunnelIsUp) {
  EXPECT_EQ(Info("proxy", false),
            "VPN_NOT_CONNECTED: VPN disconnected before querying auto selector info");
  EXPECT_THAT(clock.waits(), ElementsAre(500));
  EXPECT_THAT(http.TakeRequests(), IsEmpty());
}

TEST_F(UrlTest, InfoOfAPlainNodeComesFromItsOwnProbe) {
  Now("proxy", "node_1");
  Delay("node_1", 70);
  EXPECT_EQ(Info(), "node_1 70 {}");
  EXPECT_THAT(http.TakeRequests(), ElementsAre("9090 /proxies/proxy within 3000",
                                               Asked("/proxies/node_1", "3000", "4000")));
}

TEST_F(UrlTest, InfoOfAChainComesFromTheGroupsAnswer) {
  struct Row {
    const char* sentence;
    const char* now;
    const char* delays;
    const char* info;
    bool probes_leaf;
  };
  const Row rows[] = {
      {"the leaf's own delay stands in it", "node_2", R"({"node_1":30,"node_2":40})",
       R"(node_2 40 {"node_1":30,"node_2":40})", false},
      {"a leaf with 0 is probed", "node_2", R"({"node_2":0})", R"(node_2 77 {"node_2":0})", true},
      {"a leaf that is missing is probed", "node_2", R"({"node_1":30})",
       R"(node_2 77 {"node_1":30})", true},
      {"an answer without sense is handed on", "node_2", "garbage", "node_2 77 garbage", true},
      {"no known leaf: the fastest node", "", R"({"proxy":5,"node_1":30,"node_3":20})",
       R"(node_3 20 {"proxy":5,"node_1":30,"node_3":20})", false},
      {"no known leaf and no node", "", R"({"proxy":5})", R"( -1 {"proxy":5})", false},
  };
  Now("proxy", "auto");
  Delay("node_2", 77);
  for (const Row& row : rows) {
    Now("auto", row.now);
    GroupDelays("auto", row.delays);
    EXPECT_EQ(Info(), row.info) << row.sentence;
    std::vector<std::string> requests = {"9090 /proxies/proxy within 3000",
                                         "9090 /proxies/auto within 3000",
                                         Asked("/group/auto", "3000", "4000")};
    if (row.probes_leaf) {
      requests.push_back(Asked("/proxies/node_2", "3000", "4000"));
    }
    EXPECT_EQ(http.TakeRequests(), requests) << row.sentence;
  }
}

TEST_F(UrlTest, InfoWithoutAGroupsAnswerIsTheLeafAlone) {
  Now("proxy", "auto_eu");
  EXPECT_EQ(Info(), " -1 {}");
  Now("auto_eu", "node_1");
  EXPECT_EQ(Info(), "node_1 -1 {}");
  Delay("node_1", 12);
  EXPECT_EQ(Info(), "node_1 12 {}");
}

TEST_F(UrlTest, InfoTellsWhyThereIsNone) {
  EXPECT_EQ(Info(), "API_UNAVAILABLE: Clash API selector not responding");
  EXPECT_EQ(Info(""), "API_UNAVAILABLE: Clash API selector not responding");
  const auto off = GetAutoSelectorInfo("{}", "proxy", [] { return true; });
  EXPECT_EQ(std::get<EngineApiError>(off).code, "API_UNAVAILABLE");
  EXPECT_EQ(std::get<EngineApiError>(off).message, "Clash API is disabled for this session");
  EXPECT_THROW(static_cast<void>(GetAutoSelectorInfo(kTooLarge, "proxy", [] { return true; })),
               std::out_of_range);
}

TEST_F(UrlTest, LeafThatAnswersIsTheAnswer) {
  Now("proxy", "auto");
  Now("auto", "node_1");
  Delay("node_1", 55);
  EXPECT_EQ(Test(10000), "55");
  EXPECT_THAT(http.TakeRequests(),
              ElementsAre("9090 /proxies/proxy within 3000", "9090 /proxies/auto within 3000",
                          Asked("/proxies/node_1", "10000", "11000")));
  EXPECT_THAT(stages, ElementsAre("before-resolve", "before-leaf-probe"));
}

TEST_F(UrlTest, GroupThatIsAskedInsteadIsTheSelectorItself) {
  Now("my sel", "auto");
  Now("auto", "node_1");
  http.answers["/proxies/my%20sel"] = R"({"now":"auto"})";
  Delay("node_1", 0);
  GroupDelays("my%20sel", R"({"auto":60,"node_1":90})");
  EXPECT_EQ(Test(0, "my sel"), "60");
  EXPECT_THAT(
      http.TakeRequests(),
      ElementsAre("9090 /proxies/my%20sel within 3000", "9090 /proxies/auto within 3000",
                  Asked("/proxies/node_1", "0", "4000"), Asked("/group/my%20sel", "3000", "4000")));
  EXPECT_THAT(stages, ElementsAre("before-resolve", "before-leaf-probe", "before-group-fallback"));
}

TEST_F(UrlTest, WithoutALeafTheGroupIsAskedAtOnce) {
  GroupDelays("proxy", R"({"a":60})");
  EXPECT_EQ(Test(2000, ""), "60");
  EXPECT_THAT(http.TakeRequests(), ElementsAre("9090 /proxies/proxy within 3000",
                                               Asked("/group/proxy", "2000", "4000")));
  EXPECT_THAT(stages, ElementsAre("before-resolve", "before-group-fallback"));
}

TEST_F(UrlTest, TestTellsWhyItFailed) {
  EXPECT_EQ(Test(), "URL_TEST_FAILED: Group delay probe unreachable");
  for (const char* body : {"{}", R"({"a":0,"b":0})", "garbage"}) {
    GroupDelays("proxy", body);
    EXPECT_EQ(Test(), "URL_TEST_FAILED: No healthy member in selector group") << body;
  }
  GroupDelays("proxy", R"({"a":99999999999})");
  EXPECT_THROW(Test(), std::out_of_range);
  stages.clear();
  const auto off = PerformUrlTest("{}", "proxy", 1, [](const char*) { return false; });
  EXPECT_EQ(std::get<EngineApiError>(off).message, "Clash API is disabled for this session");
}

TEST_F(UrlTest, TunnelThatDropsAtACheckpointEndsTheTestThere) {
  Now("proxy", "node_1");
  Delay("node_1", 0);
  GroupDelays("proxy", R"({"a":60})");
  const std::pair<const char*, std::size_t> rows[] = {
      {"before-resolve", 0}, {"before-leaf-probe", 1}, {"before-group-fallback", 2}};
  for (const auto& [stage, requests] : rows) {
    EXPECT_EQ(Test(5000, "proxy", stage), "URL_TEST_FAILED: VPN disconnected during URLTest")
        << stage;
    EXPECT_EQ(http.TakeRequests().size(), requests) << stage;
  }
}

}  // namespace
}  // namespace korvane::test
