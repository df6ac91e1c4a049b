// The console itself: ids, threads, the order of lines, waits, frames, the ends that a run can
// have.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/host_driver/host_process.h"
#include "support/host_driver/host_target.h"

namespace korvane::test {
namespace {

constexpr int kRunOut = 3;

// A short string value, in hexadecimal.
std::string Text(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex = "07";
  hex += {kDigits[text.size() / 16], kDigits[text.size() % 16]};
  for (const char c : text) {
    hex += {kDigits[c / 16], kDigits[c % 16]};
  }
  return hex;
}

Json MethodBytes(std::string_view method, std::string_view argument) {
  return {{"$bytes", Text(method) + Text(argument)}};
}

Json StateEventBytes(std::string_view word) {
  return {{"$bytes", "000d01" + Text("status") + Text(word)}};
}

class Console : public testing::Test {
 protected:
  HostOptions Options() { return {.program = "echo_host"}; }

  std::filesystem::path Script(const std::vector<std::string>& lines) {
    const auto path = user_.folder() / "script";
    std::ofstream file(path);
    for (const auto& line : lines) {
      file << line << "\n";
    }
    return path;
  }

  // Plays a script from a file to its end; the lines that it gave, without times.
  std::vector<Json> Play(const std::vector<std::string>& lines, int exit_code,
                         HostOptions options = {.program = "echo_host"}) {
    options.script = Script(lines);
    HostProcess host(user_, options);
    EXPECT_EQ(host.WaitForExit(), exit_code) << host.Transcript();
    auto printed = host.lines();
    for (auto& line : printed) {
      EXPECT_TRUE(line["ms"].is_number_unsigned()) << line;
      line.erase("ms");
    }
    return printed;
  }

  static bool Contains(const std::vector<Json>& lines, const Json& wanted) {
    return std::find(lines.begin(), lines.end(), wanted) != lines.end();
  }

  HostUser user_;
};

TEST_F(Console, ShowsTheWindowWithTheFirstFrameAndClosesItAtTheEndOfTheInput) {
  auto options = Options();
  options.arguments = {"--flag", "two words", "\xc3\xa9"};
  HostProcess host(user_, options);
  host.Await({{"window", "created"}});
  const auto engine = host.AwaitKey("engine")["engine"];
  EXPECT_EQ(engine["arguments"][1], "two words");
  EXPECT_EQ(engine["assets_path"], "data\\flutter_assets");
  EXPECT_EQ(engine["impeller_mode"], 2);
  host.Await({{"window", "shown"}});
  host.EndInput();
  host.Await({{"window", "destroyed"}});
  EXPECT_EQ(host.WaitForExit(), 0);
  EXPECT_EQ(host.Matching({{"window", "shown"}}).size(), 1U);
}

TEST_F(Console, CountsCallsFromOneAndKeepsGivenIds) {
  HostProcess host(user_, Options());
  host.SendText(R"({"call":"length"})");
  host.SendText(R"({"call":"length","id":2})");
  host.SendText(R"({"listen":"vpn_events"})");
  host.SendText(R"({"call":"length"})");
  host.SendText(R"({"call":"length","id":"x"})");
  host.SendText(R"({"call":"never","id":9})");
  host.SendText(R"({"call":"length","id":9})");
  EXPECT_TRUE(host.Reply(1).contains("success"));
  EXPECT_TRUE(host.Reply(2).contains("success"));
  EXPECT_EQ(host.Reply("listen")["success"], nullptr);
  EXPECT_TRUE(host.Reply(3).contains("success"));
  EXPECT_TRUE(host.Reply("x").contains("success"));
  EXPECT_EQ(host.AwaitKey("console_error")["console_error"], "the call 9 is still open");
}

TEST_F(Console, TellsTheThreadOfBothKindsOfAnswers) {
  HostProcess host(user_, Options());
  const Json success = {{"$bytes", "0001"}};
  const Json error = {{"$bytes",
                       "01070158"
                       "0000"}};
  EXPECT_EQ(host.Call("say", success)["thread"], "window");
  EXPECT_EQ(host.Call("say", error)["thread"], "window");
  EXPECT_EQ(host.Call("say_later", success)["thread"], "worker");
  EXPECT_EQ(host.Call("say_later", error)["thread"], "worker");
}

TEST_F(Console, AnswersForChannelsAndMethodsThatNobodyHas) {
  HostProcess host(user_, Options());
  EXPECT_EQ(host.Call("anything", nullptr, "core")["not_implemented"], true);
  EXPECT_EQ(host.Call("noSuchMethod")["not_implemented"], true);
  host.SendText(R"({"raw":"07 09 69 73","id":5})");
  EXPECT_EQ(host.Reply(5)["not_implemented"], true);
  host.SendText(R"({"raw":"","channel":"vpn_events","id":6})");
  EXPECT_EQ(host.Reply(6)["error"]["code"], "E");
  host.SendText(R"({"cancel":"vpn_events","id":7})");
  EXPECT_EQ(host.Reply(7)["error"]["code"], "E");
}

TEST_F(Console, PrintsCallsAndEventsTowardsDart) {
  HostProcess host(user_, Options());
  host.Call("send", MethodBytes("onVPNStateChanged", "vpn_connected"));
  host.Await({{"method", "onVPNStateChanged"}, {"args", "vpn_connected"}});
  host.Call("emit", StateEventBytes("vpn_connected"));
  host.Await({{"event", {{"status", "vpn_connected"}}}});
  host.Call("emit", {{"$bytes", "0107014507016d00"}});
  host.Await({{"event_error", {{"code", "E"}, {"message", "m"}, {"details", nullptr}}}});
  host.Call("emit", {{"$bytes", ""}});
  host.Await({{"event_end", true}});
  host.Call("send", {{"$bytes", "0701"}});
  host.Await({{"malformed", "a size that the bytes don't hold"}, {"hex", "0701"}});
  EXPECT_EQ(host.Call("ask", MethodBytes("onVPNError", "x"))["success"], "0000");
}

TEST_F(Console, CarriesACallOfTwentyMegabytes) {
  HostProcess host(user_, Options());
  EXPECT_EQ(host.Call("length", std::string(20'000'000, 'c'))["success"], "20000014");
}

TEST_F(Console, MeetsWaitsByWhatArrivedAfterTheLastOne) {
  const auto send = [](std::string_view method, std::string_view argument) {
    return Json{{"call", "send"}, {"args", MethodBytes(method, argument)}}.dump();
  };
  const auto emit = [](std::string_view word) {
    return Json{{"call", "emit"}, {"args", StateEventBytes(word)}}.dump();
  };
  const auto lines = Play(
      {
          emit("vpn_connecting"),
          send("onVPNStateChanged", "vpn_connecting"),
          emit("vpn_connected"),
          send("onVPNStateChanged", "vpn_connected"),
          R"({"wait":{"reply":4}})",
          "# The words came before that reply, and behind the wait before it.",
          R"({"wait":{"state":"vpn_connecting"}})",
          R"({"wait":{"state":"vpn_connected"}})",
          send("onVPNError", "first"),
          R"({"wait":{"method":"onVPNError"}})",
          R"({"wait":{"reply":1}})",
          R"({"wait":{"idle_ms":20}})",
          "",
          "# Both ways of the word are one arrival, and it was taken.",
          R"({"wait":{"state":"vpn_connected"},"timeout_ms":20})",
      },
      kRunOut);
  EXPECT_TRUE(Contains(lines, {{"method", "onVPNError"}, {"args", "first"}}))
      << "a wait before it ran out";
  EXPECT_EQ(lines.back(), Json({{"timeout", {{"state", "vpn_connected"}}}}));
}

TEST_F(Console, FailsLoudlyWhenAWaitRunsOut) {
  struct Row {
    const char* wait;
    Json told;
  };
  const Row rows[] = {
      {R"({"wait":{"reply":1},"timeout_ms":20})", {{"reply", 1}}},
      {R"({"wait":{"method":"onVPNError"},"timeout_ms":20})", {{"method", "onVPNError"}}},
      {R"({"wait":{"window":"restored"},"timeout_ms":20})", {{"window", "restored"}}},
      {R"({"wait":{"idle_ms":60000},"timeout_ms":20})", {{"idle_ms", 60000}}},
  };
  for (const auto& row : rows) {
    const auto lines = Play({R"({"call":"never"})", row.wait}, kRunOut);
    EXPECT_EQ(lines.back(), Json({{"timeout", row.told}})) << row.wait;
  }
  auto options = Options();
  options.environment = {{"KORVANE_CONSOLE_END_MS", "20"}};
  EXPECT_EQ(Play({R"({"call":"never","id":"n"})"}, kRunOut, options).back(),
            Json({{"timeout", {{"replies", {"n"}}}}}));
}

TEST_F(Console, LetsAFilesScriptHoldTheFirstFrame) {
  const auto held = Play({R"({"engine":{"consume":[1,2]}})", R"({"window":{"message":32768}})",
                          R"({"dance":true})", R"({"frame":true})"},
                         0);
  const auto error = std::find(held.begin(), held.end(), Json({{"console_error", "no such line"}}));
  const auto shown = std::find(held.begin(), held.end(), Json({{"window", "shown"}}));
  EXPECT_TRUE(error < shown && shown != held.end());

  EXPECT_TRUE(Contains(Play({R"({"wait":{"window":"shown"}})"}, 0), {{"window", "shown"}}));

  HostProcess host(user_, {.program = "echo_host", .manual_frames = true});
  host.Call("length");
  EXPECT_TRUE(host.Matching({{"window", "shown"}}).empty());
  host.Send({{"frame", true}});
  host.Await({{"window", "shown"}});
  EXPECT_EQ(host.Finish(), 0);
}

TEST_F(Console, DrawsAFrameWhenTheHostAsksForOne) {
  HostProcess host(user_, Options());
  host.Await({{"window", "shown"}});
  host.Call("frame");
  host.Call("frame");
  EXPECT_TRUE(host.Matching({{"violation", "a second next-frame callback at a time"}}).empty());
}

TEST_F(Console, LetsTheEngineConsumeMessages) {
  HostProcess host(user_, Options());
  EXPECT_EQ(host.Call("consumed")["success"], "no");
  host.Send({{"engine", {{"consume", {2, 536}}}}});
  EXPECT_EQ(host.Call("consumed")["success"], "yes");
  host.Await({{"engine_consumed", 536}});
  host.Send({{"engine", {{"consume", Json::array()}}}});
  EXPECT_EQ(host.Call("consumed")["success"], "no");
}

TEST_F(Console, TellsWhenTheHostBreaksARule) {
  HostProcess host(user_, Options());
  host.Call("say_twice", {{"$bytes", "0001"}});
  host.Await({{"violation", "a response handle that isn't open"}});
  host.Call("unlocked");
  host.Await({{"violation", "SendResponse off the window thread without the lock"}});
}

TEST_F(Console, FailsWhatItIsToldToFail) {
  struct Row {
    const char* what;
    int exit_code;
    const char* adapter;
  };
  const Row rows[] = {
      {R"({"fail":"engine"})", 1, nullptr},   {R"({"fail":"view_controller"})", 1, nullptr},
      {"window,view_controller", 1, nullptr}, {"", 0, "Stand-in Adapter"},
      {"graphics_adapter", 0, "refused"},     {"adapter_description", 0, "failed"},
  };
  for (const auto& row : rows) {
    auto options = Options();
    options.environment = {{"KORVANE_CONSOLE_FAIL", row.what}};
    const auto lines = Play({R"({"call":"adapter"})"}, row.exit_code, options);
    if (row.adapter == nullptr) {
      continue;
    }
    EXPECT_TRUE(Contains(lines, {{"reply", 1}, {"success", row.adapter}, {"thread", "window"}}))
        << row.what;
  }
  EXPECT_TRUE(Contains(Play({R"({"fail":"graphics_adapter"})", R"({"call":"adapter"})"}, 0),
                       {{"reply", 1}, {"success", "refused"}, {"thread", "window"}}));
}

TEST_F(Console, KeepsTheMessengerBehindTheEnginesEnd) {
  HostProcess host(user_, Options());
  host.Send({{"call", "quit"}});
  EXPECT_EQ(host.WaitForExit(), 7);
}

TEST_F(Console, EndsTheProcessAsACrashDoes) {
  const auto lines = Play({R"({"call":"length"})", R"({"wait":{"reply":1}})", R"({"abort":true})"},
                          DrivesWindows() ? 5 : 128 + 9);
  EXPECT_FALSE(Contains(lines, {{"window", "destroyed"}}));
}

TEST_F(Console, ClosesTheWindowWhenTold) {
  EXPECT_TRUE(Contains(Play({R"({"call":"never"})", R"({"close":true})", R"({"close":true})"}, 0),
                       {{"window", "destroyed"}}));
}

TEST_F(Console, WritesToAFileAndReadsFromOne) {
  const auto output = user_.folder() / "output";
  std::ofstream(output) << "what was there before\n";
  auto options = Options();
  options.environment = {{"KORVANE_CONSOLE_OUT", HostUser::PathForHost(output)}};
  EXPECT_TRUE(Play({R"({"call":"length"})"}, 0, options).empty());
  std::ifstream file(output);
  std::string first;
  std::getline(file, first);
  EXPECT_EQ(Json::parse(first)["window"], "created");

  options.script = user_.folder() / "missing";
  options.environment = {};
  HostProcess host(user_, options);
  host.Await({{"console_error", "the input file can't be opened"}});
  EXPECT_EQ(host.WaitForExit(), kRunOut);
}

}  // namespace
}  // namespace korvane::test
