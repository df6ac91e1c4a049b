#include "recorder/startup_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recorder/fake_adapter.h"
#include "recorder/recorder_world.h"
#include "support/flutter/fake_flutter_library.h"

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
  const json expected = {
      {"stage", "process_start"},
      {"ms", 0},
      {"run_id", "{9F2C5B1E-0A4D-4C3B-8E77-1D2F3A4B5C6D}"},
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
        {"last_result", nullptr}}},
  };
  EXPECT_EQ(world.LastLine(), expected);
}

TEST(StartupRecorder, ARunWithoutAGuidSaysWhy) {
  struct Row {
    const char* sentence;
    std::optional<platform::ErrorCode> creation_error;
    bool format_fails;
    const char* stage;
    json hresult;
  };
  const Row rows[] = {
      {"no GUID, and its HRESULT is signed", 0x8007000E, true, "guid_creation_failed", -2147024882},
      {"a GUID that can't be written out", std::nullopt, true, "guid_format_failed", nullptr},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    world.identifiers.guid_error = row.creation_error;
    world.identifiers.format_fails = row.format_fails;
    StartupRecorder recorder;

    EXPECT_THAT(world.Stages(), ElementsAre("process_start", row.stage)) << row.sentence;
    const json line = world.LastLine();
    EXPECT_EQ(line.at("run_id"), "guid_unavailable") << row.sentence;
    EXPECT_EQ(line.value("hresult", json()), row.hresult) << row.sentence;
    EXPECT_EQ(line.size(), row.hresult.is_null() ? 4u : 5u) << row.sentence;
    EXPECT_EQ(InSnapshot(recorder, "run_id"), EncodableValue("guid_unavailable"));
  }
}

TEST(StartupRecorder, TheFourKeysAreTheRecordersOwn) {
  RecorderWorld world;
  StartupRecorder recorder;
  recorder.Event("mutex", {{"ms", "mine"},
                           {"pid", "mine"},
                           {"run_id", "mine"},
                           {"stage", "mine"},
                           {"already_exists", true}});
  EXPECT_EQ(world.LastLine(), (json{{"ms", 0},
                                    {"pid", platform::os().process->Id()},
                                    {"run_id", test::kFixedGuid},
                                    {"stage", "mutex"},
                                    {"already_exists", true}}));
}

TEST(StartupRecorder, MillisecondsAreCutTowardZero) {
  struct NanosecondClock : test::FakeClock {
    std::int64_t now = 5'000'000'123;
    std::int64_t SteadyNanoseconds() override { return now; }
  };
  RecorderWorld world;
  NanosecondClock clock;
  platform::Os os = platform::os();
  os.clocks = &clock;
  const platform::ScopedOs scope(os);
  StartupRecorder recorder;
  for (const auto& [elapsed, ms] : {std::pair{999'999, 0}, {1'000'000, 1}, {1'999'999, 1}}) {
    clock.now = 5'000'000'123 + elapsed;
    recorder.Event("mutex");
    EXPECT_EQ(world.LastLine().at("ms"), ms) << elapsed;
  }
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
  RecorderWorld world;
  StartupRecorder recorder;
  recorder.RecordActivateRequest(4'294'967'295, true);
  json line = world.LastLine();
  EXPECT_EQ(line.at("stage"), "activate_request");
  EXPECT_EQ(line.at("from_pid"), 4'294'967'295);
  EXPECT_EQ(line.at("first_raster"), true);
  EXPECT_EQ(line.at("action"), "restore");
  EXPECT_EQ(InSnapshot(recorder, "activated_before_first_raster"), EncodableValue(false));

  recorder.RecordActivateRequest(8, false);
  line = world.LastLine();
  EXPECT_EQ(line.at("first_raster"), false);
  EXPECT_EQ(line.at("action"), "latched");
  EXPECT_EQ(line.size(), 4u + 3u);
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
                                                   {"height", std::int32_t{1080}},
                                                   {"event", "the caller's"},
                                                   {"ms", "the caller's"}});
  const json first = world.LastLine();
  EXPECT_EQ(first.at("stage"), "WM_DISPLAYCHANGE");
  EXPECT_EQ(first.size(), 4u + 1u) << "the fields stand inside the event object";
  EXPECT_EQ(first.at("last_display_event"), (json{{"code", 32},
                                                  {"width", 1920},
                                                  {"height", 1080},
                                                  {"event", "WM_DISPLAYCHANGE"},
                                                  {"ms", 5}}));

  world.clock.Advance(2);
  recorder.RecordDisplayEvent("WM_WTSSESSION_CHANGE", {{"code", std::int64_t{7}}});
  EXPECT_EQ(
      InSnapshot(recorder, "last_display_event"),
      EncodableValue(EncodableMap{
          {"code", std::int64_t{7}}, {"event", "WM_WTSSESSION_CHANGE"}, {"ms", std::int64_t{7}}}));
}

TEST(StartupRecorder, AnUpdateResultStandsInLineAndSnapshotAsItCame) {
  RecorderWorld world;
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

TEST(StartupRecorder, ASnapshotIsACopy) {
  const RecorderWorld world;
  StartupRecorder recorder;
  EncodableMap copy = recorder.Snapshot();
  copy["pid"] = "mine";
  EXPECT_EQ(InSnapshot(recorder, "pid"),
            EncodableValue(std::int64_t{platform::os().process->Id()}));
}

// The steps of a good first start in their order, as the launch makes them.
TEST(StartupRecorder, AGoodStartReadsAsATimeline) {
  RecorderWorld world;
  test::FakeAdapter adapter;
  test::fake_flutter::SetGraphicsAdapter(true, &adapter);
  int window_place = 0;

  StartupRecorder& recorder = StartupRecorder::instance();
  recorder.RecordSessionFacts(nullptr, nullptr, 2);
  recorder.Event("mutex", {{"already_exists", false}});
  for (const char* stage : {"win32_create", "engine_create"}) {
    world.clock.Advance(10);
    recorder.Event(stage);
  }
  recorder.RecordSessionFacts(&window_place, test::fake_flutter::engine(), 2);
  recorder.Event("plugins_registered");
  recorder.Event("core_channel_ready");
  world.clock.Advance(100);
  recorder.RecordFirstRaster();
  recorder.Event("show_window");

  EXPECT_THAT(world.Stages(),
              ElementsAre("process_start", "session_facts", "mutex", "win32_create",
                          "engine_create", "session_facts", "plugins_registered",
                          "core_channel_ready", "first_raster_callback", "show_window"));
  const json raster = world.Lines().at(8);
  EXPECT_EQ(raster.at("ms_to_first_raster"), 120);
  EXPECT_EQ(raster.at("gpu_adapter"), "Fake Adapter");
  EXPECT_EQ(&recorder, &StartupRecorder::instance());
  recorder.Close();  // while the surroundings are there
}

}  // namespace
}  // namespace korvane
