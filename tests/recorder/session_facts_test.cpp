#include "recorder/session_facts.h"

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

template <typename T>
T FactOf(const SessionFacts& sampled, const char* name) {
  const T* fact = flutter::FindIf<T>(sampled.facts, name);
  EXPECT_NE(fact, nullptr) << name;
  return fact != nullptr ? *fact : T{};
}

TEST(SessionFacts, AdapterIsNamedOrSaysWhyNotAndIsAlwaysReleased) {
  struct Row {
    const char* sentence;
    bool found;
    bool given;
    std::u16string description;
    std::int32_t hresult;
    std::string text;
    const char* stage;  // of the failure's event, if there is one
    EncodableMap fields;
  };
  const std::u16string full(128, u'x');
  const Row rows[] = {
      {"an adapter's name is the text",
       true,
       true,
       u"Fake Adapter",
       0,
       "Fake Adapter",
       nullptr,
       {}},
      {"an adapter without a name is named by nothing", true, true, u"", 0, "", nullptr, {}},
      {"a success other than 0 is a success", true, true, u"A", 1, "A", nullptr, {}},
      {"128 units need no terminator", true, true, full, 0, std::string(128, 'x'), nullptr, {}},
      {"two, three and four bytes",
       true,
       true,
       u"\u00E4\u20AC\U0001F4A9",
       0,
       "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x92\xA9",
       nullptr,
       {}},
      {"the edges of the surrogates",
       true,
       true,
       u"\uD7FF\uE000\U00010000\U0010FFFF",
       0,
       "\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       nullptr,
       {}},
      {"no adapter in spite of a yes",
       true,
       false,
       u"",
       0,
       "graphics_adapter_unavailable",
       "graphics_adapter_unavailable",
       {}},
      {"no",
       false,
       false,
       u"",
       0,
       "graphics_adapter_unavailable",
       "graphics_adapter_unavailable",
       {}},
      {"an adapter in spite of a no",
       false,
       true,
       u"A",
       0,
       "graphics_adapter_unavailable",
       "graphics_adapter_unavailable",
       {}},
      {"no description, and the HRESULT is signed",
       true,
       true,
       u"A",
       static_cast<std::int32_t>(0x887A0005),
       "adapter_description_failed",
       "adapter_description_failed",
       {{"hresult", std::int64_t{-2005270523}}}},
      {"a high surrogate at the end",
       true,
       true,
       u"A\xD83D",
       0,
       "adapter_description_encoding_failed",
       "adapter_description_encoding_failed",
       {}},
      {"a high surrogate cut by the end of the record",
       true,
       true,
       full.substr(0, 127) + u"\xD83D",
       0,
       "adapter_description_encoding_failed",
       "adapter_description_encoding_failed",
       {}},
      {"a low surrogate alone",
       true,
       true,
       u"\xDCA9"
       u"A",
       0,
       "adapter_description_encoding_failed",
       "adapter_description_encoding_failed",
       {}},
      {"two high surrogates",
       true,
       true,
       u"\xD83D\xD83D\xDCA9",
       0,
       "adapter_description_encoding_failed",
       "adapter_description_encoding_failed",
       {}},
  };
  const RecorderWorld world;
  for (const Row& row : rows) {
    FakeAdapter adapter;
    adapter.description = row.description;
    adapter.hresult = row.hresult;
    SetGraphicsAdapter(row.found, row.given ? &adapter : nullptr);

    const SessionFacts sampled = SampleSessionFacts(kAnyWindow, engine(), 2);

    EXPECT_EQ(FactOf<std::string>(sampled, "gpu_adapter"), row.text) << row.sentence;
    EXPECT_EQ(adapter.references, row.given ? 0 : 1) << row.sentence;
    ASSERT_EQ(sampled.failures.size(), row.stage != nullptr ? 1u : 0u) << row.sentence;
    if (row.stage != nullptr) {
      EXPECT_EQ(sampled.failures[0].stage, row.stage) << row.sentence;
      EXPECT_EQ(sampled.failures[0].fields, row.fields) << row.sentence;
    }
  }
}

TEST(SessionFacts, DensityIsOfTheWindowOrOfTheSystem) {
  struct Row {
    const char* sentence;
    bool window;
    bool module;
    bool function;
    std::uint32_t density;
    std::int64_t dpi;
    std::string source;
    const char* stage;
  };
  const Row rows[] = {
      {"a window's", true, true, true, 144, 144, "window", nullptr},
      {"the system's", false, true, true, 96, 96, "system", nullptr},
      {"a window's that is 0 keeps its source", true, true, true, 0, 0, "window",
       "dpi_query_failed"},
      {"the system's that is 0 keeps its source", false, true, true, 0, 0, "system",
       "dpi_query_failed"},
      {"no function", true, true, false, 144, 0, "unavailable", "dpi_api_unavailable"},
      {"no module", false, false, true, 144, 0, "unavailable", "dpi_module_unavailable"},
  };
  for (const Row& row : rows) {
    RecorderWorld world;
    world.appearance.module_there = row.module;
    world.appearance.function_there = row.function;
    world.appearance.density = row.density;
    const std::string api = row.window ? "GetDpiForWindow" : "GetDpiForSystem";

    const SessionFacts sampled = SampleSessionFacts(row.window ? kAnyWindow : nullptr, nullptr, 2);

    EXPECT_EQ(FactOf<std::int64_t>(sampled, "dpi"), row.dpi) << row.sentence;
    EXPECT_EQ(FactOf<std::string>(sampled, "dpi_source"), row.source) << row.sentence;
    EXPECT_EQ(world.appearance.asked,
              row.module ? std::vector<std::string>{api} : std::vector<std::string>{})
        << row.sentence;
    ASSERT_EQ(sampled.failures.size(), row.stage != nullptr ? 1u : 0u) << row.sentence;
    if (row.stage != nullptr) {
      EXPECT_EQ(sampled.failures[0].stage, row.stage) << row.sentence;
      EXPECT_EQ(sampled.failures[0].fields, (EncodableMap{{"api", api}})) << row.sentence;
    }
  }
}

TEST(SessionFacts, RendererIsNamedByItsMode) {
  EXPECT_EQ(RendererName(1), "impeller_enabled");
  EXPECT_EQ(RendererName(2), "impeller_disabled");
  for (const int mode : {0, 7, -1}) {
    EXPECT_EQ(RendererName(mode), "impeller_default") << mode;
  }
}

TEST(SessionFacts, FailuresAreWrittenBeforeTheFactsThatTheyExplain) {
  RecorderWorld world;
  world.appearance.density = 0;
  StartupRecorder recorder;
  SetGraphicsAdapter(false, nullptr);

  recorder.RecordSessionFacts(kAnyWindow, engine(), 2);

  EXPECT_EQ(world.Stages(),
            (std::vector<std::string>{"process_start", "graphics_adapter_unavailable",
                                      "dpi_query_failed", "session_facts"}));
  const nlohmann::json facts = world.LastLine();
  EXPECT_EQ(facts.size(), 4u + 6u);
  EXPECT_EQ(facts.at("gpu_adapter"), "graphics_adapter_unavailable");
  EXPECT_EQ(facts.at("renderer"), "impeller_disabled");
  EXPECT_EQ(facts.at("dpi"), 0);
  EXPECT_EQ(facts.at("dpi_source"), "window");
  EXPECT_EQ(facts.at("remote_session"), platform::os().windows->RemoteSession());
  EXPECT_EQ(facts.at("display_count"), platform::os().windows->DisplayCount());
}

TEST(SessionFacts, LaterFactsReplaceEarlierOnesInTheSnapshot) {
  RecorderWorld world;
  StartupRecorder recorder;
  EXPECT_EQ(recorder.Snapshot().count("dpi"), 0u);

  world.appearance.density = 96;
  recorder.RecordSessionFacts(nullptr, nullptr, 0);
  const EncodableMap at_launch = recorder.Snapshot();
  EXPECT_EQ(*flutter::Find(at_launch, "gpu_adapter"), EncodableValue("engine_not_created"));
  EXPECT_EQ(*flutter::Find(at_launch, "renderer"), EncodableValue("impeller_default"));
  EXPECT_EQ(*flutter::Find(at_launch, "dpi_source"), EncodableValue("system"));
  EXPECT_EQ(flutter::Find(at_launch, "display_count")->GetIf<std::int64_t>(), nullptr)
      << "the number of displays is a 32-bit integer";

  world.appearance.density = 144;
  FakeAdapter adapter;
  SetGraphicsAdapter(true, &adapter);
  recorder.RecordSessionFacts(kAnyWindow, engine(), 2);
  const EncodableMap in_window = recorder.Snapshot();
  EXPECT_EQ(in_window.size(), at_launch.size());
  EXPECT_EQ(*flutter::Find(in_window, "gpu_adapter"), EncodableValue("Fake Adapter"));
  EXPECT_EQ(*flutter::Find(in_window, "dpi"), EncodableValue(std::int64_t{144}));
  EXPECT_EQ(*flutter::Find(in_window, "dpi_source"), EncodableValue("window"));
}

}  // namespace
}  // namespace korvane
