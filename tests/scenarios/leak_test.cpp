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

// What a process holds. Under Wine threads, files and sockets are descriptors of the Unix process.
struct Holdings {
  long descriptors = 0;
  long threads = 0;
  long handles = 0;  // on Windows
  long memory_bytes = 0;
  bool in_pages = false;  // resident memory, where no checker counts the heap
};

// The system may open a few of its own; one for each session would be hundreds.
constexpr long kHandlesSlack = 100;
// A buffer may have grown with the length of a number; among the pages is what the allocator keeps
// for later.
constexpr long kHeapSlackBytes = 1024;
constexpr long kPagesSlackBytes = 2 << 20;

std::ostream& operator<<(std::ostream& stream, const Holdings& held) {
  return stream << held.descriptors << " descriptors, " << held.threads << " threads, "
                << held.handles << " handles, " << held.memory_bytes << " bytes";
}

long EntriesOf(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

long PagesOf(const fs::path& process) {
  std::ifstream status(process / "status");
  long kilobytes = 0;
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") {
      status >> kilobytes;
    }
  }
  return kilobytes * 1024;
}

Holdings HoldingsOf(HostProcess& host) {
  host.Send({{"measure", true}});
  const Json counted = host.AwaitKey("holds")["holds"];
  const fs::path process = "/proc/" + std::to_string(host.pid());
  return {
      .descriptors = EntriesOf(process / "fd"),
      .threads = EntriesOf(process / "task"),
      .handles = counted["handles"].is_null() ? 0 : counted["handles"].get<long>(),
      .memory_bytes = counted["heap"].is_null() ? PagesOf(process) : counted["heap"].get<long>(),
      .in_pages = counted["heap"].is_null()};
}

// A worker's thread is gone a moment after its answer, and nobody tells when.
Holdings SettledHoldingsOf(HostProcess& host, long threads) {
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
  const HostUser user;
  HostProcess host(user);
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
  EXPECT_LE(whole.handles, half.handles + kHandlesSlack);
  EXPECT_LE(whole.memory_bytes,
            half.memory_bytes + (half.in_pages ? kPagesSlackBytes : kHeapSlackBytes));
  EXPECT_EQ(host.Finish(), 0);
}

}  // namespace
}  // namespace korvane::test
