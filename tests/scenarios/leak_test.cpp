// A host that has worked for long holds no more than one that has worked for half as long.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>

#include "scenarios/sessions.h"

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

// The interface's stand-in keeps a journal of what it has heard; the thread checker, a shadow that
// is several times as large as the memory.
#if defined(__has_feature)
#define KORVANE_THREAD_CHECKER __has_feature(thread_sanitizer)
#else
#define KORVANE_THREAD_CHECKER 0
#endif
constexpr long kSlackKb = KORVANE_THREAD_CHECKER ? 16'384 : 4096;

// What a process holds. Under Wine threads, files and sockets are descriptors of the Unix process.
struct Holdings {
  long descriptors = 0;
  long threads = 0;
  long memory_kb = 0;
};

std::ostream& operator<<(std::ostream& stream, const Holdings& held) {
  return stream << held.descriptors << " descriptors, " << held.threads << " threads, "
                << held.memory_kb << " KB";
}

long EntriesOf(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

Holdings HoldingsOf(const HostProcess& host) {
  const fs::path process = "/proc/" + std::to_string(host.pid());
  Holdings held{EntriesOf(process / "fd"), EntriesOf(process / "task"), 0};
  std::ifstream status(process / "status");
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") {
      status >> held.memory_kb;
    }
  }
  return held;
}

// A worker's thread is gone a moment after its answer, and nobody tells when.
Holdings SettledHoldingsOf(const HostProcess& host, long threads) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  Holdings held = HoldingsOf(host);
  while (held.threads > threads && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    held = HoldingsOf(host);
  }
  return held;
}

void Work(HostProcess& host, const Json& preference, int sessions, int calls) {
  SwitchOn(host);
  for (int session = 0; session < sessions; ++session) {
    if (session == sessions / 10) {  // the rest without evidence, which waits for the disk
      EXPECT_EQ(host.Call("setWindowsDiagnosticsEnabled", {{"enabled", false}})["success"], false);
    }
    EXPECT_EQ(host.Call("loadVPNPreference", preference)["success"], true);
    EXPECT_EQ(host.Call("stopVPN")["success"], true);
    for (int call = 0; call < calls / sessions; ++call) {
      host.Send({{"call", call % 2 == 0 ? "getStatus" : "getAutoSelectorInfo"}, {"id", call}});
    }
  }
  host.Call("isRunning");  // all that was sent before it was taken
}

TEST(Leaks, AThousandSessionsAndTenThousandCallsLevelOff) {
  constexpr int kSessions = 1000;
  constexpr int kCalls = 10'000;
  // In memory that is kept back for the checker's sake nobody could see a leak.
  constexpr char kOwnMemoryOnly[] = "quarantine_size_mb=0:thread_local_quarantine_size_kb=0";
  const HostUser user;
  HostProcess host(user, {.environment = {{"ASAN_OPTIONS", kOwnMemoryOnly}}});
  const Json preference =
      Preference(ConfigWith({{"hold", Json::array()}}) + std::string(20'000, ' '));

  Work(host, preference, 1, 10);
  const Holdings first = HoldingsOf(host);
  Work(host, preference, kSessions / 2, kCalls / 2);
  const Holdings half = SettledHoldingsOf(host, first.threads);
  Work(host, preference, kSessions / 2, kCalls / 2);
  const Holdings whole = SettledHoldingsOf(host, half.threads);
  std::cout << "after 1 session: " << first << "\nafter half: " << half << "\nafter all: " << whole
            << "\n";

  EXPECT_LE(whole.descriptors, half.descriptors);
  EXPECT_LE(whole.threads, half.threads);
  EXPECT_LE(whole.memory_kb, half.memory_kb + kSlackKb);
  EXPECT_EQ(host.Finish(), 0);
}

}  // namespace
}  // namespace korvane::test
