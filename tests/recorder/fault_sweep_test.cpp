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

// Whatever lies there stays, and the next line is whole.
TEST(RecorderDamage, ALineIsAppendedWholeToWhateverLiesThere) {
  std::string sound;
  {
    const RecorderWorld world;
    StartupRecorder().Event("mutex");
    sound = world.LogText();
  }
  RecorderWorld world;
  std::filesystem::create_directories(world.LogPath().parent_path());
  const auto expect_appended = [&world](const std::string& damaged) {
    test::WriteBytes(world.LogPath(), damaged);
    const StartupRecorder recorder;
    const std::string log = world.LogText();
    ASSERT_TRUE(log.starts_with(damaged));
    const auto added = RecorderWorld::ParseLines(log.substr(damaged.size()));
    ASSERT_EQ(added.size(), 1U);
    EXPECT_EQ(added.front().at("stage"), "process_start");
    EXPECT_TRUE(world.errors.lines().empty());
  };
  for (std::size_t length = 0; length < sound.size(); ++length) {
    expect_appended(sound.substr(0, length));
  }
  for (std::size_t bit = 0; bit < sound.size() * 8; ++bit) {
    std::string flipped = sound;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
    expect_appended(flipped);
  }
}

}  // namespace
}  // namespace korvane
