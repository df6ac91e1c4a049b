#include "recorder/startup_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recorder/recorder_world.h"

namespace korvane {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using nlohmann::json;
using test::RecorderWorld;
using ::testing::ElementsAre;

EncodableValue InSnapshot(StartupRecorder& recorder, const char* key) {
  const EncodableMap snapshot = recorder.Snapshot();
  const EncodableValue* value = flutter::Find(snapshot, key);
  EXPECT_NE(value, nullptr) << key;
  return value != nullptr ? *value : EncodableValue();
}

TEST(StartupRecorder, ProcessStartCarriesTheWholeFirstSnapshot) {
  const RecorderWorld world;
  const StartupRecorder recorder;
  EXPECT_EQ(world.LastLine(), (json{{"stage", "process_start"},
                                    {"ms", 0},
                                    {"run_id", test::kRunId},
                                    {"pid", platform::os().process->Id()},
                                    {"ms_to_first_raster", nullptr},
                                    {"remote_session", platform::os().windows->RemoteSession()},
                                    {"gpu_adapter", "engine_not_created"},
                                    {"renderer", "not_sampled"},
                                    {"last_display_event", nullptr},
                                    {"activated_before_first_raster", false},
                                    {"update",
                                     {{"last_attempt_at", nullptr},
                                      {"last_successful_check_at", nullptr},
                                      {"last_result", nullptr}}}}));
}

TEST(StartupRecorder, ARunWithoutAGuidSaysWhy) {
  const std::pair<const char*, json> rows[] = {
      {"Identifiers.CreateGuid", {{"stage", "guid_creation_failed"}, {"hresult", -2147024882}}},
      {"Identifiers.FormatGuid", {{"stage", "guid_format_failed"}}},
  };
  for (auto [operation, expected] : rows) {
    RecorderWorld world(std::nullopt, /*error=*/0x8007000E);
    world.failing = operation;
    const StartupRecorder recorder;
    expected.update({{"ms", 0}, {"run_id", "guid_unavailable"}});
    expected["pid"] = platform::os().process->Id();
    EXPECT_EQ(world.LastLine(), expected);
    EXPECT_EQ(world.Lines().size(), 2u);
  }
}

TEST(StartupRecorder, TheFourKeysAreTheRecordersOwn) {
  const RecorderWorld world;
  StartupRecorder recorder;
  recorder.Event("mutex", {{"ms", "mine"},
                           {"pid", "mine"},
                           {"run_id", "mine"},
                           {"stage", "mine"},
                           {"already_exists", true}});
  EXPECT_EQ(world.LastLine(), (json{{"ms", 0},
                                    {"pid", platform::os().process->Id()},
                                    {"run_id", test::kRunId},
                                    {"stage", "mutex"},
                                    {"already_exists", true}}));
}

TEST(StartupRecorder, MillisecondsAreCutTowardZero) {
  struct NanosecondClock : test::FakeClock {
    std::int64_t now = 5'000'000'123;
    std::int64_t SteadyNanoseconds() override { return now; }
  };
  const RecorderWorld world;
  NanosecondClock clock;
  platform::Os os = platform::os();
  os.clocks = &clock;
  const platform::ScopedOs scope(os);
  StartupRecorder recorder;
  clock.now += 1'999'999;
  recorder.Event("show_window");
  EXPECT_EQ(world.LastLine().at("ms"), 1);
}

TEST(StartupRecorder, FirstRasterTimesItselfInLineAndSnapshot) {
  RecorderWorld world;
  StartupRecorder recorder;
  world.clock.Advance(1234);
  recorder.RecordFirstRaster();
  const json line = world.LastLine();
  EXPECT_EQ(line.at("stage"), "first_raster_callback");
  EXPECT_EQ(line.at("ms_to_first_raster"), 1234);
  EXPECT_EQ(line.at("ms"), 1234);
  EXPECT_EQ(line.at("update").size(), 3u) << "the whole snapshot is in the line";

  world.clock.Advance(1);
  recorder.RecordActivateRequest(7, true);
  EXPECT_EQ(InSnapshot(recorder, "ms_to_first_raster"), EncodableValue(std::int64_t{1234}));
}

TEST(StartupRecorder, ActivationIsLatchedBeforeTheFirstFrameAlone) {
  const RecorderWorld world;
  StartupRecorder recorder;
  const auto expect_line = [&world](std::int64_t from_pid, bool first_raster, const char* action) {
    const json line = world.LastLine();
    EXPECT_EQ(line.at("stage"), "activate_request");
    EXPECT_EQ(line.at("from_pid"), from_pid);
    EXPECT_EQ(line.at("first_raster"), first_raster);
    EXPECT_EQ(line.at("action"), action);
  };
  recorder.RecordActivateRequest(4'294'967'295, true);
  expect_line(4'294'967'295, true, "restore");
  EXPECT_EQ(InSnapshot(recorder, "activated_before_first_raster"), EncodableValue(false));
  recorder.RecordActivateRequest(8, false);
  expect_line(8, false, "latched");
  recorder.RecordActivateRequest(8, true);
  EXPECT_EQ(InSnapshot(recorder, "activated_before_first_raster"), EncodableValue(true))
      << "nothing takes it back";
}

TEST(StartupRecorder, ADisplayEventReplacesTheFormerOneAltogether) {
  RecorderWorld world;
  StartupRecorder recorder;
  world.clock.Advance(5);
  recorder.RecordDisplayEvent("WM_DISPLAYCHANGE", {{"code", std::int64_t{32}},
                                                   {"width", std::int32_t{1920}},
                                                   {"event", "the caller's"},
                                                   {"ms", "the caller's"}});
  const json first = world.LastLine();
  EXPECT_EQ(first.size(), 4u + 1u) << "the fields stand inside the event object";
  EXPECT_EQ(first.at("stage"), "WM_DISPLAYCHANGE");
  EXPECT_EQ(first.at("last_display_event"),
            (json{{"code", 32}, {"width", 1920}, {"event", "WM_DISPLAYCHANGE"}, {"ms", 5}}));

  world.clock.Advance(2);
  recorder.RecordDisplayEvent("WM_WTSSESSION_CHANGE", {{"code", std::int64_t{8}}});
  EXPECT_EQ(
      InSnapshot(recorder, "last_display_event"),
      EncodableValue(EncodableMap{
          {"code", std::int64_t{8}}, {"event", "WM_WTSSESSION_CHANGE"}, {"ms", std::int64_t{7}}}));
}

TEST(StartupRecorder, AnUpdateResultStandsInLineAndSnapshotAsItCame) {
  const RecorderWorld world;
  StartupRecorder recorder;
  const EncodableMap update{{"last_attempt_at", std::int32_t{5}},
                            {"last_successful_check_at", EncodableValue()},
                            {"last_result", "ok(200)."}};
  recorder.RecordUpdateResult(update);
  EXPECT_EQ(world.LastLine().at("stage"), "update_result");
  EXPECT_EQ(world.LastLine().at("update"), (json{{"last_attempt_at", 5},
                                                 {"last_successful_check_at", nullptr},
                                                 {"last_result", "ok(200)."}}));
  EXPECT_EQ(InSnapshot(recorder, "update"), EncodableValue(update));
}

}  // namespace
}  // namespace korvane
