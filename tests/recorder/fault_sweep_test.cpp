// The journal with every operation of the platform failed in turn. It never stops a start: all
// calls come back, what is in the log is whole lines, and what isn't there was told.
#include "support/fault_sweep.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"

namespace korvane {
namespace {

using test::RecorderWorld;

constexpr std::size_t kLimit = 262144;

// A start in short. The log is full on the way, so that it is rotated.
void RunStart(const RecorderWorld& world) {
  StartupRecorder recorder;
  recorder.RecordSessionFacts(nullptr, nullptr, 2);
  world.FillLog(kLimit);
  recorder.Event("mutex", {{"already_exists", false}});
  recorder.RecordActivateRequest(7, false);
  recorder.RecordDisplayEvent("WM_DISPLAYCHANGE", {{"width", std::int32_t{1920}}});
  recorder.RecordFirstRaster();
  EXPECT_EQ(recorder.Snapshot().at("ms_to_first_raster"), flutter::EncodableValue(std::int64_t{0}))
      << "the snapshot needs no log";
  recorder.Close();
}

bool Round(const test::CountingPlan& plan) {
  RecorderWorld world;
  std::filesystem::create_directories(world.LogPath().parent_path());
  const bool met = test::MeetsFault(plan, [&world] { RunStart(world); });
  const std::vector<std::string> in_log = world.Stages();  // and fails on a line that isn't whole
  const std::vector<std::string> told = world.errors.lines();
  // Behind the rotation each stage is in the log or was told of.
  for (const char* stage :
       {"mutex", "activate_request", "WM_DISPLAYCHANGE", "first_raster_callback"}) {
    const bool reported = std::any_of(told.begin(), told.end(), [stage](const auto& line) {
      return line.find(std::string(R"("stage":")") + stage + '"') != std::string::npos;
    });
    EXPECT_TRUE(reported || std::ranges::count(in_log, stage) == 1) << stage;
  }
  for (const std::string& line : told) {
    EXPECT_NE(line.find(R"("recorder_failure":")"), std::string::npos) << line;
  }
  return met;
}

TEST(RecorderFaultSweep, AFailureCostsLinesAndNeverTheStart) {
  test::SweepFaults("startup log", 30, Round);
}

}  // namespace
}  // namespace korvane
