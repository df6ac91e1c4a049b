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
constexpr std::int64_t kEvents = 3000;

const test::SecondProcessRole kWriter("log writer", [] {
  RecorderWorld world(std::filesystem::path(test::HearLine().value()));
  world.kernel_objects.bounded = test::HearLine() == "bounded";
  StartupRecorder recorder;
  test::SayLine("ready");
  const std::int64_t events = std::stoll(test::HearLine().value());
  for (std::int64_t event = 0; event < events; ++event) {
    recorder.Event("dart_breadcrumb", {{"name", "two_processes"}, {"dartMs", event}});
  }
  for (const std::string& report : world.errors.lines()) {
    test::SayLine(report);
  }
  return 0;
});

// Processes that write at once, and whether they wait no longer than the log allows.
struct Writers {
  int number;
  bool bounded;
};

class LogWriters : public testing::TestWithParam<Writers> {};

TEST_P(LogWriters, LeaveWholeLinesAndLoseNoneButThoseThatTheyReport) {
  const auto [number, bounded] = GetParam();
  const test::TemporaryFolder folder;
  std::vector<std::unique_ptr<test::SecondProcess>> writers;
  for (int i = 0; i < number; ++i) {
    writers.push_back(std::make_unique<test::SecondProcess>("log writer"));
    writers.back()->Say(folder.path().string());
    writers.back()->Say(bounded ? "bounded" : "patient");
    ASSERT_EQ(writers.back()->Hear(), "ready");
  }
  for (const auto& writer : writers) {
    writer->Say(std::to_string(kEvents / number));
  }
  std::map<std::int64_t, std::vector<std::int64_t>> events_by_process;
  for (const auto& writer : writers) {
    while (const auto report = writer->Hear()) {
      EXPECT_TRUE(bounded) << *report;
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
  ASSERT_EQ(events_by_process.size(), static_cast<std::size_t>(number));
  for (auto& [pid, events] : events_by_process) {
    std::vector<std::int64_t> all(static_cast<std::size_t>(kEvents / number));
    std::iota(all.begin(), all.end(), 0);
    std::ranges::sort(events);
    EXPECT_EQ(events, all) << pid;
  }
}

INSTANTIATE_TEST_SUITE_P(Contention, LogWriters,
                         testing::Values(Writers{2, false}, Writers{8, true}),
                         [](const auto& test) { return "Of" + std::to_string(test.param.number); });

// Stops in the midst of a line, for good.
const test::SecondProcessRole kHolder("log holder", [] {
  RecorderWorld world(std::filesystem::path(test::HearLine().value()));
  const test::CountingOs stopping(platform::os(), test::StopAt(
                                                      1,
                                                      [] {
                                                        test::SayLine("holding");
                                                        test::HearLine();
                                                      },
                                                      [](const test::Operation& operation) {
                                                        return operation.name == "Files.Write";
                                                      }));
  const platform::ScopedOs scope(stopping.os());
  const StartupRecorder recorder;
  return 0;
});

TEST(TwoProcesses, ADeadOwnerOfTheLogIsReportedAndTheLineWritten) {
  const test::TemporaryFolder folder;
  RecorderWorld world(folder.path());
  StartupRecorder recorder;
  test::SecondProcess holder("log holder");
  holder.Say(folder.path().string());
  ASSERT_EQ(holder.Hear(), "holding");
  holder.Kill();

  recorder.Event("mutex");

  EXPECT_EQ(world.LastLine().at("stage"), "mutex");
  EXPECT_EQ(world.errors.lines().size(), 1u);
  EXPECT_TRUE(world.errors.HasText(R"("recorder_failure":"log_mutex_abandoned","os_error":0})"));
}

}  // namespace
}  // namespace korvane
