// What the interface hears of the running engine: delays, what the automatic selector picked, and
// why not, when the engine answers badly or goes away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/host_driver/host_process.h"
#include "support/host_driver/host_target.h"
#include "web/web_server.h"

namespace korvane::test {
namespace {

using stand_in::WebServer;

// A loopback port that was free a moment ago.
int FreePort() { return WebServer(0).port(); }

class EngineApi : public testing::Test {
 protected:
  // A selector over an automatic group of two nodes, and a third node that is down.
  Json Config(const std::string& chosen) const {
    const auto node = [](const char* tag) {
      return Json{{"type", "vless"}, {"tag", tag}, {"server", "127.0.0.1"}, {"server_port", 1}};
    };
    return {{"log", Json::object()},
            {"inbounds", {{{"type", "mixed"}, {"tag", "mixed-in"}, {"listen", "127.0.0.1"}}}},
            {"outbounds",
             {{{"type", "selector"},
               {"tag", "proxy"},
               {"outbounds", {"auto", "node_1", "node_2", "node_3"}},
               {"default", chosen}},
              {{"type", "urltest"}, {"tag", "auto"}, {"outbounds", {"node_1", "node_2", "node_3"}}},
              node("node_1"),
              node("node_2"),
              node("node_3")}},
            {"experimental",
             {{"clash_api", {{"external_controller", "127.0.0.1:" + std::to_string(FreePort())}}},
              {"stand_in",
               {{"probe_url", web_.Url("/generate_204")},
                {"outbounds",
                 {{"node_1", {{"report_delay_ms", 80}}},
                  {"node_2", {{"report_delay_ms", 40}}},
                  {"node_3", {{"fail", "refused"}}}}}}}}}};
  }

  void Connect(const Json& config) {
    const Json reply =
        host_.Call("loadVPNPreference", {{"config", config.dump()}, {"autoConfigureProxy", false}});
    ASSERT_TRUE(Matches(reply, {{"success", true}})) << reply << host_.Transcript();
  }

  Json Test() { return host_.Call("performUrlTest", {{"timeout", 3000}}); }
  Json Info() { return host_.Call("getAutoSelectorInfo"); }

  WebServer web_{0};
  HostUser user_;
  HostProcess host_{user_};
};

TEST_F(EngineApi, TellsTheDelaysAndWhatTheAutomaticGroupPicked) {
  Connect(Config("auto"));
  Json first = Test();
  EXPECT_EQ(first["success"], 80) << "nothing is measured yet: the group's first member";
  EXPECT_EQ(first["thread"], "worker");

  Json info = Info()["success"];
  EXPECT_EQ(info["selectedTag"], "node_1");
  EXPECT_EQ(info["selectedLatency"], 80);
  EXPECT_EQ(Json::parse(info["allLatencies"].get<std::string>()),
            (Json{{"node_1", 80}, {"node_2", 40}}));

  info = Info()["success"];
  EXPECT_EQ(info["selectedTag"], "node_2") << "the group has chosen the faster one by now";
  EXPECT_EQ(info["selectedLatency"], 40);
  EXPECT_EQ(Test()["success"], 40);
  EXPECT_EQ(host_.Finish(), 0);
}

TEST_F(EngineApi, TellsOfAChosenNodeAndOfItsGroupWhenItIsDown) {
  Connect(Config("node_1"));
  EXPECT_EQ(Test()["success"], 80);
  EXPECT_EQ(Info()["success"],
            (Json{{"selectedTag", "node_1"}, {"selectedLatency", 80}, {"allLatencies", "{}"}}));

  Connect(Config("node_3"));
  EXPECT_EQ(Test()["success"], 40) << "the fastest of the selector's members";
  EXPECT_EQ(Info()["success"]["selectedLatency"], -1);

  Json config = Config("node_3");
  for (const char* node : {"node_1", "node_2"}) {
    config["experimental"]["stand_in"]["outbounds"][node] = {{"fail", "refused"}};
  }
  Connect(config);
  EXPECT_EQ(Test()["error"]["message"], "No healthy member in selector group");
  EXPECT_EQ(host_.Finish(), 0);
}

TEST_F(EngineApi, AnswersOnceWhateverTheEngineAnswers) {
  constexpr char kDelays[] = R"({"node_1":80,"node_2":40})";
  const auto failed = [](const char* code, const char* message) {
    return Json{{"error", {{"code", code}, {"message", message}}}};
  };
  const Json no_selector = failed("API_UNAVAILABLE", "Clash API selector not responding");
  const Json no_group = failed("URL_TEST_FAILED", "Group delay probe unreachable");
  const Json good_test = {{"success", 80}};
  const struct {
    const char* sentence;
    Json told;
    Json test;  // what the replies hold
    Json info;
  } rows[] = {
      {"bytes that are no HTTP", {{"kind", "garbage"}}, no_group, no_selector},
      {"half a body",
       {{"path", "/group/auto/delay"}, {"kind", "cut"}, {"body", kDelays}},
       good_test,
       {{"success", {{"selectedLatency", 80}, {"allLatencies", R"({"node_1":80)"}}}}},
      {"eight megabytes",
       {{"path", "/group/auto/delay"}, {"body", kDelays}, {"pad_bytes", std::size_t{8} << 20}},
       good_test,
       {{"success", {{"selectedLatency", 80}}}}},
  };
  for (const auto& row : rows) {
    Json config = Config("auto");
    config["experimental"]["stand_in"]["clash_answers"] = Json::array({row.told});
    Connect(config);
    Json test = Test();
    if (DrivesWindows() && Matches(test, no_group)) {
      test = Test();  // Wine, on a crowded machine, has lost a short answer's body before
    }
    EXPECT_TRUE(Matches(test, row.test)) << row.sentence << ": " << test;
    const Json info = Info();
    EXPECT_TRUE(Matches(info, row.info)) << row.sentence << ": " << info.dump().substr(0, 300);
  }
  EXPECT_EQ(host_.Finish(), 0);
}

}  // namespace
}  // namespace korvane::test
