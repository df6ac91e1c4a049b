// Everything at once: workers of many methods, a window that is slow to pump, a listener that comes
// and goes, diagnostics switched on and off, imports, an engine that hangs in its close, and a
// window that is closed in the midst of it.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "scenarios/sessions.h"
#include "support/seed.h"
#include "support/vpn_methods.h"

namespace korvane::test {
namespace {

// Hundreds of calls at once take their time where processors are few and the first reading of the
// network tables starts a driver.
constexpr std::chrono::minutes kLong{2};
constexpr int kCalls = 400;

struct Round {
  const char* name;
  bool cut;             // the window is closed before all calls are made
  bool hangs_for_ever;  // the engine never comes back from a close
  unsigned salt;        // no two rounds choose alike
};

std::ostream& operator<<(std::ostream& stream, const Round& round) { return stream << round.name; }

class Soak : public testing::TestWithParam<Round> {
 protected:
  template <typename Choice>
  const Choice& AnyOf(const std::vector<Choice>& choices) {
    return choices[random_() % choices.size()];
  }
  bool OneIn(unsigned number) { return random_() % number == 0; }

  Json AnyCall();
  bool MayBeMade(const Json& call) const;
  void Disturb(std::ofstream& script, const std::string& id);
  std::filesystem::path WriteScript();

  const unsigned seed_ = Seed() * 4 + GetParam().salt;
  std::mt19937 random_{seed_};
  HostUser user_;
};

// One of all methods that don't reach beyond the user, with arguments of every kind, most of them
// wrong for most methods; or one of those that keep the workers busy, with good ones.
Json Soak::AnyCall() {
  static const std::vector<std::string> methods = [] {
    auto all = LocalVpnMethods();
    all.insert(all.end(), {"noSuchMethod", "startupBreadcrumb", "startupUpdate"});
    return all;
  }();
  static const std::vector<Json> arguments = Json::parse(R"([null, true, 7, {"$int64":7}, 1.5,
      "text", "\u00e9", {"$latin1":"\u00ff"}, [], ["text",1], {}, {"config":"{}",
      "autoConfigureProxy":"yes"}, {"config":5}, {"enabled":1}, {"reason":"tray_quit"},
      {"incidentId":"../x","reimportCount":{"$int64":1}}, {"$map":[[1,2]]}, {"$bytes":"00ff"}])");
  if (OneIn(2)) {
    return {{"call", AnyOf(methods)},
            {"args", AnyOf(arguments)},
            {"channel", OneIn(8) ? "core" : "vpn"}};
  }
  Json close = {{"wait_ms", 50}};
  if (GetParam().hangs_for_ever) {
    close = {{"until_file", HostUser::PathForHost(user_.folder() / "never made")}};
  }
  const Json hangs = {{"close_service", close}};
  const std::vector<Json> busy{
      {{"call", "loadVPNPreference"}, {"args", Preference(ConfigWith(Json::object()))}},
      {{"call", "loadVPNPreference"}, {"args", Preference(ConfigWith(hangs))}},
      {{"call", "loadVPNPreference"},
       {"args", Preference(ConfigWith({{"start_service", {{"fail", "no"}}}}))}},
      {{"call", "stopVPN"}},
      {{"call", "performUrlTest"}, {"args", {{"timeout", 500}}}},
      {{"call", "getWindowsRuntimeDiagnostics"}},
      {{"call", "setWindowsDiagnosticsEnabled"}, {"args", {{"enabled", true}}}},
      {{"call", "setWindowsDiagnosticsEnabled"}, {"args", {{"enabled", false}}}},
      {{"call", "importPendingIncidents"}}};
  return AnyOf(busy);
}

// Three methods wait on the window thread for a stop that is under way.
bool Soak::MayBeMade(const Json& call) const {
  static const std::set<Json> waiting{"setWindowsDiagnosticsEnabled",
                                      "getWindowsRuntimeDiagnostics", "getAutoSelectorInfo"};
  return !GetParam().hangs_for_ever || !waiting.contains(call["call"]);
}

// Something that is no call.
void Soak::Disturb(std::ofstream& script, const std::string& id) {
  constexpr int kPowerBroadcast = 0x0218;
  if (OneIn(2)) {
    script << Json{{OneIn(2) ? "listen" : "cancel", "vpn_events"}, {"id", id}} << '\n';
  } else {
    // The window is busy: each of these is a line of the startup log.
    for (int message = 0; message < 10; ++message) {
      script << Json{{"window", {{"message", kPowerBroadcast}, {"wparam", message}}}} << '\n';
    }
  }
}

// All that is sent, as a script: the host may end before it has read it all.
std::filesystem::path Soak::WriteScript() {
  const std::filesystem::path path = user_.folder() / "script";
  std::ofstream script(path);
  script << Json{{"call", "setWindowsDiagnosticsEnabled"}, {"args", {{"enabled", true}}}} << '\n';
  const int close_at = GetParam().cut ? static_cast<int>(random_() % kCalls) : kCalls;
  for (int id = 0; id < kCalls; ++id) {
    if (id == close_at) {
      script << Json{{"close", true}} << '\n';
    }
    Json call = AnyCall();
    while (!MayBeMade(call)) {
      call = AnyCall();
    }
    call["id"] = "call " + std::to_string(id);
    script << call << '\n';
    if (OneIn(5)) {
      Disturb(script, "disturbance " + std::to_string(id));
    }
  }
  return path;
}

TEST_P(Soak, AnswersEachCallOnceAndNoneTwice) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  HostProcess host(user_,
                   {.environment = {{"KORVANE_CONSOLE_END_MS", "110000"},
                                    {"KORVANE_CONSOLE_IN", HostUser::PathForHost(WriteScript())}}});
  EXPECT_EQ(host.WaitForExit(kLong), 0) << host.Transcript();

  const bool cut = GetParam().cut;
  std::map<std::string, int> answers;
  for (const Json& line : host.lines()) {
    for (const auto* fault : {"violation", "malformed", "timeout"}) {
      EXPECT_FALSE(line.contains(fault)) << line;
    }
    // Once the window is closed, it takes no messages.
    EXPECT_TRUE(cut || !line.contains("console_error")) << line;
    if (line.contains("reply") && line["reply"].is_string()) {
      EXPECT_EQ(++answers[line["reply"]], 1) << line;
    }
  }
  if (!cut) {
    std::erase_if(answers, [](const auto& answer) { return !answer.first.starts_with("call"); });
    EXPECT_EQ(answers.size(), static_cast<std::size_t>(kCalls));
  }
}

INSTANTIATE_TEST_SUITE_P(Rounds, Soak,
                         testing::Values(Round{"ToTheEnd", false, false, 0},
                                         Round{"ClosedEarly", true, false, 1},
                                         Round{"ClosedAnywhere", true, false, 2},
                                         Round{"ClosedOnAHangingEngine", true, true, 3}),
                         [](const auto& round) { return std::string(round.param.name); });

}  // namespace
}  // namespace korvane::test
