#include "egress/selector_probes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/os.h"
#include "support/fake_loopback_http.h"

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SelectorAnswerTest, ReadsTheChoiceAsJson) {
  struct Case {
    std::string body;
    SelectorProbeStatus status;
    const char* now;
  };
  const std::vector<Case> cases = {
      {R"({"now":"node_1"})", SelectorProbeStatus::kRead, "node_1"},
      {R"( {"all":["now"],"now":"\u0061\"b","now":"c"} )", SelectorProbeStatus::kRead, "a\"b"},
      {"", SelectorProbeStatus::kMalformedAnswer, ""},
      {R"({"now":"a")", SelectorProbeStatus::kMalformedAnswer, ""},
      {R"(["now","a"])", SelectorProbeStatus::kMalformedAnswer, ""},
      {"{}", SelectorProbeStatus::kNowMissing, ""},
      {R"({"Now":"a"})", SelectorProbeStatus::kNowMissing, ""},
      {R"({"now":""})", SelectorProbeStatus::kNowMissing, ""},
      {R"({"now":null})", SelectorProbeStatus::kNowMissing, ""},
      {R"({"all":{"now":"a"}})", SelectorProbeStatus::kNowMissing, ""},
  };
  for (const Case& each : cases) {
    const SelectorAnswer answer = ParseSelectorAnswer(each.body);
    EXPECT_EQ(answer.status, each.status) << each.body;
    EXPECT_EQ(answer.now, each.now) << each.body;
  }
}

class ProbeSelectorsTest : public testing::Test {
 protected:
  ProbeSelectorsTest() : scope_(WithHttp(http)) {
    config.outbounds.resize(4);
    config.outbounds[0].tag = "node";
    config.outbounds[0].type = "vless";
    config.outbounds[1].tag = "by/hand \xC3\xA9";
    config.outbounds[1].type = "selector";
    config.outbounds[2].type = "urltest";  // has no tag
    config.outbounds[3].tag = "auto";
    config.outbounds[3].type = "urltest";
  }

  test::FakeLoopbackHttp http;
  EgressConfig config;

 private:
  static platform::Os WithHttp(test::FakeLoopbackHttp& http) {
    platform::Os os = platform::RealOs();
    os.loopback_http = &http;
    return os;
  }

  platform::ScopedOs scope_;
};

TEST_F(ProbeSelectorsTest, AsksForEachGroupInOrder) {
  http.answers["/proxies/by%2Fhand%20%C3%A9"] = R"({"now":"node"})";
  http.answers["/proxies/auto"] = "half an answ";
  const auto probes = ProbeSelectors(config, 9090);
  EXPECT_THAT(http.TakeRequests(),
              ElementsAre("9090 /proxies/by%2Fhand%20%C3%A9 within 1200",
                          "9090 /proxies/ within 1200", "9090 /proxies/auto within 1200"));
  ASSERT_EQ(probes.size(), 3U);
  EXPECT_EQ(probes[0].tag, config.outbounds[1].tag);
  EXPECT_EQ(probes[0].status, SelectorProbeStatus::kRead);
  EXPECT_EQ(probes[0].now, "node");
  EXPECT_EQ(probes[1].status, SelectorProbeStatus::kNoAnswer);
  EXPECT_EQ(probes[2].status, SelectorProbeStatus::kMalformedAnswer);
  EXPECT_EQ(probes[2].now, "");
}

TEST_F(ProbeSelectorsTest, AsksNobodyWithoutAPortOrAtOneThatIsNone) {
  for (const auto& port : {std::optional<int>(), std::optional<int>(70000)}) {
    const auto probes = ProbeSelectors(config, port);
    EXPECT_THAT(http.TakeRequests(), IsEmpty());
    ASSERT_EQ(probes.size(), 3U);
    EXPECT_EQ(probes[2].tag, "auto");
    EXPECT_EQ(probes[2].status, SelectorProbeStatus::kNoAnswer);
  }
}

}  // namespace
}  // namespace korvane
