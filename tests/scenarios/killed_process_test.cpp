// Hosts that are killed: at any moment of a session, and at each step of a takeover. The next start
// tells the truth of the first, and no kill leaves the user without a host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "scenarios/sessions.h"
#include "scenarios/startup_log.h"
#include "support/host_driver/host_target.h"
#include "support/seed.h"

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

// Shares of the kills that run beside each other.
class KilledSession : public testing::TestWithParam<int> {};

// A connect and the stop behind it.
void BeginSession(HostProcess& host) {
  host.Send({{"call", "loadVPNPreference"},
             {"args", Preference(ConfigWith(Json::object()))},
             {"id", "connect"}});
  host.Send({{"wait", {{"reply", "connect"}}}, {"timeout_ms", 60000}});
  host.Send({{"call", "stopVPN"}, {"id", "stop"}});
}

bool Answered(const HostProcess& host, const char* id) {
  return !host.Matching({{"reply", id}, {"success", true}}).empty();
}

// The ends that the host tells; the archive is then emptied, since it keeps but few incidents and
// many of them come within a second here.
std::vector<std::string> TakeIncidents(HostProcess& host, const HostUser& user) {
  const auto ends = ImportedBy(host);
  fs::remove_all(user.korvane_folder() / "incidents");
  return ends;
}

TEST_P(KilledSession, IsToldByTheNextStart) {
  const unsigned seed = Seed() * 4 + static_cast<unsigned>(GetParam());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const int kills = DrivesWindows() ? 8 : 50;
  const HostUser user;
  std::chrono::microseconds whole;
  {
    HostProcess host(user);
    SwitchOn(host);
    const auto begin = std::chrono::steady_clock::now();
    BeginSession(host);
    EXPECT_EQ(host.Reply("stop")["success"], true);
    whole = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                  begin);
    EXPECT_EQ(host.Finish(), 0);
  }
  bool connected = true;
  bool stopped = true;
  for (int kill = 0; kill <= kills; ++kill) {
    HostProcess host(user);
    const auto ends = TakeIncidents(host, user);
    const auto told = testing::PrintToString(ends) + " after kill " + std::to_string(kill);
    if (stopped) {
      EXPECT_THAT(ends, ElementsAre("clean/clean_shutdown")) << told;
    } else if (connected) {
      EXPECT_THAT(ends, ElementsAre(AnyOf("unexplained/session_active", "clean/clean_shutdown")))
          << told;
    } else {
      EXPECT_THAT(ends, AnyOf(IsEmpty(), ElementsAre("unexplained/session_active"))) << told;
    }
    BeginSession(host);
    // A moment of the session; none of the answers depends on which.
    std::this_thread::sleep_for(whole * (random() % 120) / 100);
    host.Kill();
    connected = Answered(host, "connect");
    stopped = Answered(host, "stop");
  }
}

INSTANTIATE_TEST_SUITE_P(Shares, KilledSession, testing::Range(1, 5));

// Nothing of a process that has gone meanwhile.
std::string ReadAll(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// The Unix processes of the user that a takeover has started: the child, and under Wine for a
// moment the one that starts it.
std::vector<pid_t> TakeoverChildren(const HostUser& user) {
  std::vector<pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos &&
        ReadAll(entry.path() / "cmdline").find("--takeover-token=") != std::string::npos &&
        ReadAll(entry.path() / "environ").find(user.folder().string()) != std::string::npos) {
      children.push_back(std::stoi(name));
    }
  }
  return children;
}

void KillTakeoverChild(const HostUser& user) {
  bool seen = false;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < deadline) {
    const auto children = TakeoverChildren(user);
    if (seen && children.empty()) {
      return;
    }
    for (const pid_t child : children) {
      kill(child, SIGKILL);
      seen = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ADD_FAILURE() << (seen ? "the child can't be killed" : "the takeover starts nobody");
}

// The stages of the run that was started by a takeover: the one that isn't the first.
std::vector<std::string> StagesOfChild(const std::vector<Json>& log) {
  const auto starts = OfStage(log, "process_start");
  return starts.size() < 2 ? std::vector<std::string>() : StagesOf(log, starts[1]["run_id"]);
}

bool Has(const std::vector<std::string>& stages, const std::string& stage) {
  return std::ranges::find(stages, stage) != stages.end();
}

TEST(Takeover, WhoseChildIsKilledAtAnyStepLeavesAHostOrTheWayToOne) {
  // The first: as soon as there is a process.
  for (const std::string stage : {"", "process_start", "session_facts", "mutex", "win32_create",
                                  "engine_create", "core_channel_ready", "show_window"}) {
    if (stage.empty() && DrivesWindows()) {
      continue;  // Wine makes a process in several steps; it's one for sure when it records
    }
    SCOPED_TRACE("killed at " + stage);
    const HostUser user;
    HostProcess parent(user);
    parent.Await({{"window", "shown"}});
    parent.Send({{"call", "requestAdminPrivileges"}, {"id", "takeover"}});
    const auto comes_to = [&user](const std::string& wanted) {
      return user.AwaitStartupLog([&](const auto& log) { return Has(StagesOfChild(log), wanted); });
    };
    if (stage == "mutex") {  // the parent can't leave before the child is dead
      EXPECT_TRUE(comes_to("process_start"));
      kill(parent.pid(), SIGSTOP);
    }
    EXPECT_TRUE(stage.empty() || comes_to(stage));
    KillTakeoverChild(user);
    kill(parent.pid(), SIGCONT);

    const Json answer = parent.Reply("takeover");
    const auto stages = StagesOfChild(user.StartupLog());
    if (Matches(answer, {{"success", true}})) {
      EXPECT_EQ(parent.WaitForExit(), 0);
    } else {
      EXPECT_EQ(answer["error"]["code"], "CHILD_DIED") << answer;
      EXPECT_FALSE(Has(stages, "mutex")) << "it has signalled before that";
      HostProcess second(user);
      EXPECT_EQ(second.WaitForExit(), 0);
      parent.Await({{"window", "foreground"}});
      EXPECT_EQ(parent.Finish(), 0);
    }
    HostProcess later(user);
    later.Await({{"window", "shown"}});
    EXPECT_EQ(later.Finish(), 0);
  }
}

}  // namespace
}  // namespace korvane::test
