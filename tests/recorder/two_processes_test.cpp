// Two processes that write to one log at the same time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"
#include "support/second_process_role.h"

namespace korvane {
namespace {

using test::RecorderWorld;

// Together the lines of both fill the log about one and a half times: one rotation comes in their
// midst, and no second one loses what the first has put aside.
constexpr int kEventsOfOneProcess = 1500;

const test::SecondProcessRole kWriter("log writer", [] {
  RecorderWorld world(std::filesystem::path(test::HearLine().value()));
  StartupRecorder recorder;
  test::SayLine("ready");
  test::HearLine();
  for (std::int64_t event = 0; event < kEventsOfOneProcess; ++event) {
    recorder.Event("dart_breadcrumb", {{"name", "two_processes"}, {"dartMs", event}});
  }
  for (const std::string& report : world.errors.lines()) {
    test::SayLine(report);
  }
  return 0;
});

TEST(TwoProcesses, WritingAtOnceLeaveWholeLinesAndAllOfThem) {
  const test::TemporaryFolder folder;
  test::SecondProcess one("log writer");
  test::SecondProcess other("log writer");
  for (test::SecondProcess* writer : {&one, &other}) {
    writer->Say(folder.path().string());
    ASSERT_EQ(writer->Hear(), "ready");
  }
  one.Say("go");
  other.Say("go");
  for (test::SecondProcess* writer : {&one, &other}) {
    EXPECT_EQ(writer->Hear(), std::nullopt) << "a report";
    EXPECT_EQ(writer->Finish(), 0);
  }

  const RecorderWorld world(folder.path());
  auto lines = RecorderWorld::ParseLines(test::ReadBytes(world.RotatedPath()).value_or(""));
  EXPECT_FALSE(lines.empty()) << "the log was rotated meanwhile";
  const auto newer = world.Lines();
  lines.insert(lines.end(), newer.begin(), newer.end());

  std::map<std::int64_t, std::vector<std::int64_t>> events_by_process;
  for (const auto& line : lines) {
    if (line.at("stage") == "dart_breadcrumb") {
      events_by_process[line.at("pid")].push_back(line.at("dartMs"));
    }
  }
  ASSERT_EQ(events_by_process.size(), 2u);
  for (const auto& [pid, events] : events_by_process) {
    ASSERT_EQ(events.size(), std::size_t{kEventsOfOneProcess}) << pid;
    EXPECT_TRUE(std::is_sorted(events.begin(), events.end())) << pid;
  }
}

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
