#include "recorder/session_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recorder/fake_adapter.h"
#include "recorder/recorder_world.h"
#include "recorder/startup_recorder.h"
#include "support/flutter/fake_flutter_library.h"

namespace korvane {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using test::FakeAdapter;
using test::RecorderWorld;
using test::fake_flutter::engine;
using test::fake_flutter::SetGraphicsAdapter;

int window_place = 0;
const platform::WindowHandle kAnyWindow = &window_place;

void ExpectFailure(const SessionFacts& sampled, const std::string& stage,
                   const EncodableMap& fields, const char* sentence) {
  ASSERT_EQ(sampled.failures.size(), stage.empty() ? 0u : 1u) << sentence;
  if (!stage.empty()) {
    EXPECT_EQ(sampled.failures[0].stage, stage) << sentence;
    EXPECT_EQ(sampled.failures[0].fields, fields) << sentence;
  }
}

TEST(SessionFacts, AdapterIsNamedOrSaysWhyNotAndIsAlwaysReleased) {
  constexpr char kUnavailable[] = "graphics_adapter_unavailable";
  constexpr char kNotDescribed[] = "adapter_description_failed";
  constexpr char kNotEncoded[] = "adapter_description_encoding_failed";
  constexpr auto kRemoved = static_cast<std::int32_t>(0x887A0005);
  const std::u16string full(128, u'x');
  struct Row {
    const char* sentence;
    bool found;
    bool given;
    std::u16string description;
    std::int32_t hresult;
    std::string text;
    bool fails;
  };
  const Row rows[] = {
      {"a name, and a success other than 0", true, true, u"A", 1, "A", false},
      {"no name is a name", true, true, u"", 0, "", false},
      {"128 units need no terminator", true, true, full, 0, std::string(128, 'x'), false},
      {"two, three and four bytes", true, true, u"\u00E4\u20AC\U0001F4A9", 0,
       "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x92\xA9", false},
      {"what borders on the surrogates", true, true, u"\uD7FF\uE000\U00010000\U0010FFFF", 0,
       "\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", false},
      {"no adapter in spite of a yes", true, false, u"", 0, kUnavailable, true},
      {"an adapter in spite of a no", false, true, u"A", 0, kUnavailable, true},
      {"no description", true, true, u"A", kRemoved, kNotDescribed, true},
      {"a high surrogate cut by the end of the record", true, true, full.substr(1) + u'\xD83D', 0,
       kNotEncoded, true},
      {"a low surrogate alone", true, true, {u'\xDCA9', u'A'}, 0, kNotEncoded, true},
      {"two high surrogates", true, true, {u'\xD83D', u'\xD83D', u'\xDCA9'}, 0, kNotEncoded, true},
  };
  const RecorderWorld world;
  for (const Row& row : rows) {
    FakeAdapter adapter;
    adapter.description = row.description;
    adapter.hresult = row.hresult;
    SetGraphicsAdapter(row.found, row.given ? &adapter : nullptr);

    const SessionFacts sampled = SampleSessionFacts(kAnyWindow, engine(), 2);

    EXPECT_EQ(*flutter::Find(sampled.facts, "gpu_adapter"), EncodableValue(row.text))
        << row.sentence;
    EXPECT_EQ(adapter.references, row.given ? 0 : 1) << row.sentence;
    ExpectFailure(sampled, row.fails ? row.text : "",
                  row.text == kNotDescribed ? EncodableMap{{"hresult", std::int64_t{kRemoved}}}
                                            : EncodableMap{},
                  row.sentence);
  }
}

TEST(SessionFacts, DensityIsOfTheWindowOrOfTheSystem) {
  struct Row {
    const char* sentence;
    platform::WindowHandle window;
    bool module;
    bool function;
    std::uint32_t density;
    std::int64_t dpi;
    const char* source;
    const char* stage;
  };
  const Row rows[] = {
      {"a window's", kAnyWindow, true, true, 144, 144, "window", ""},
      {"the system's", nullptr, true, true, 120, 120, "system", ""},
      {"0 keeps its source", kAnyWindow, true, true, 0, 0, "window", "dpi_query_failed"},
      {"so does the system's", nullptr, true, true, 0, 0, "system", "dpi_query_failed"},
      {"no function", kAnyWindow, true, false, 144, 0, "unavailable", "dpi_api_unavailable"},
      {"no module", nullptr, false, true, 144, 0, "unavailable", "dpi_module_unavailable"},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    world.appearance.module_there = row.module;
    world.appearance.function_there = row.function;
    world.appearance.density = row.density;

    const SessionFacts sampled = SampleSessionFacts(row.window, nullptr, 2);

    EXPECT_EQ(*flutter::Find(sampled.facts, "dpi"), EncodableValue(row.dpi)) << row.sentence;
    EXPECT_EQ(*flutter::Find(sampled.facts, "dpi_source"), EncodableValue(row.source))
        << row.sentence;
    const char* api = row.window != nullptr ? "GetDpiForWindow" : "GetDpiForSystem";
    ExpectFailure(sampled, row.stage, {{"api", api}}, row.sentence);
  }
}

TEST(SessionFacts, RendererIsNamedByItsMode) {
  for (const auto& [mode, name] :
       {std::pair(0, "impeller_default"), std::pair(1, "impeller_enabled"),
        std::pair(2, "impeller_disabled"), std::pair(7, "impeller_default")}) {
    EXPECT_EQ(RendererName(mode), name);
  }
}

TEST(SessionFacts, FailuresComeFirstAndTheSnapshotTakesTheFacts) {
  RecorderWorld world;
  world.appearance.density = 0;
  StartupRecorder recorder;
  EXPECT_EQ(flutter::Find(recorder.Snapshot(), "dpi"), nullptr);
  recorder.RecordSessionFacts(nullptr, nullptr, 0);
  SetGraphicsAdapter(false, nullptr);
  recorder.RecordSessionFacts(kAnyWindow, engine(), 2);

  EXPECT_THAT(
      world.Stages(),
      ::testing::ElementsAre("process_start", "dpi_query_failed", "session_facts",
                             "graphics_adapter_unavailable", "dpi_query_failed", "session_facts"));
  EXPECT_EQ(world.Lines().at(2).at("gpu_adapter"), "engine_not_created");
  const nlohmann::json line = world.LastLine();
  EXPECT_EQ(line.size(), 4u + 6u);
  EXPECT_EQ(line.at("gpu_adapter"), "graphics_adapter_unavailable");
  EXPECT_EQ(line.at("renderer"), "impeller_disabled");
  EXPECT_EQ(line.at("remote_session"), platform::os().windows->RemoteSession());

  const EncodableMap snapshot = recorder.Snapshot();
  EXPECT_EQ(*flutter::Find(snapshot, "dpi_source"), EncodableValue("window"));
  EXPECT_EQ(*flutter::Find(snapshot, "display_count"),
            EncodableValue(platform::os().windows->DisplayCount()));
  EXPECT_EQ(snapshot.size(), 9u + 3u);
}

}  // namespace
}  // namespace korvane
