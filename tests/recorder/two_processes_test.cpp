// Processes that write to one log at the same time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"
#include "support/second_process_role.h"

namespace korvane {
namespace {

using test::RecorderWorld;

// Together all lines fill the log about one and a half times: one rotation comes in their midst,
// and no second one loses what the first has put aside.
constexpr std::size_t kWriters = 8;
constexpr std::int64_t kEvents = 375;

const test::SecondProcessRole kWriter("log writer", [] {
  RecorderWorld world(std::filesystem::path(test::HearLine().value()));
  world.kernel_objects.bounded = true;
  StartupRecorder recorder;
  test::SayLine("ready");
  test::HearLine();
  for (std::int64_t event = 0; event < kEvents; ++event) {
    recorder.Event("dart_breadcrumb", {{"name", "two_processes"}, {"dartMs", event}});
  }
  for (const std::string& report : world.errors.lines()) {
    test::SayLine(report);
  }
  return 0;
});

TEST(TwoProcesses, WritersLeaveWholeLinesAndLoseNoneButThoseThatTheyReport) {
  const test::TemporaryFolder folder;
  std::vector<std::unique_ptr<test::SecondProcess>> writers;
  for (std::size_t i = 0; i < kWriters; ++i) {
    writers.push_back(std::make_unique<test::SecondProcess>("log writer"));
    writers.back()->Say(folder.path().string());
    ASSERT_EQ(writers.back()->Hear(), "ready");
  }
  for (const auto& writer : writers) {
    writer->Say("go");
  }
  std::map<std::int64_t, std::vector<std::int64_t>> events_by_process;
  for (const auto& writer : writers) {
    while (const auto report = writer->Hear()) {
      const auto line = nlohmann::json::parse(*report);
      EXPECT_EQ(line.at("recorder_failure"), "log_mutex_timeout") << *report;
      if (line.at("stage") == "dart_breadcrumb") {
        events_by_process[line.at("pid")].push_back(line.at("dartMs"));
      }
    }
    EXPECT_EQ(writer->Finish(), 0);
  }

  const RecorderWorld world(folder.path());
  auto lines = RecorderWorld::ParseLines(test::ReadBytes(world.RotatedPath()).value_or(""));
  EXPECT_FALSE(lines.empty()) << "the log was rotated meanwhile";
  const auto newer = world.Lines();
  lines.insert(lines.end(), newer.begin(), newer.end());
  std::map<std::int64_t, std::int64_t> last_event;
  for (const auto& line : lines) {
    if (line.at("stage") == "dart_breadcrumb") {
      const std::int64_t event = line.at("dartMs");
      const auto last = last_event.emplace(line.at("pid"), -1).first;
      EXPECT_GT(event, std::exchange(last->second, event)) << line;
      events_by_process[line.at("pid")].push_back(event);
    }
  }
  ASSERT_EQ(events_by_process.size(), kWriters);
  for (auto& [pid, events] : events_by_process) {
    std::vector<std::int64_t> all(kEvents);
    std::iota(all.begin(), all.end(), 0);
    std::ranges::sort(events);
    EXPECT_EQ(events, all) << pid;
  }
}

}  // namespace
}  // namespace korvane
