// From the process's entry to the first frame, and the ends of a start that goes wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "scenarios/startup_log.h"
#include "support/host_driver/host_process.h"

namespace korvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr int kRefusedStart = 1;

TEST(Start, LeavesItsStagesInOrderAndEndsWithTheWindow) {
  const HostUser user;
  HostProcess host(user);
  host.Await({{"window", "created"}});
  host.Await({{"window", "shown"}});
  EXPECT_EQ(host.Finish(), 0);
  host.Await({{"window", "destroyed"}});
  const auto log = user.StartupLog();
  ASSERT_FALSE(log.empty());
  auto stages = StagesOf(log, log[0]["run_id"]);
  std::erase(stages, "wts_unregistration_failed");  // Wine refuses every one
  EXPECT_THAT(stages, ElementsAre("process_start", "session_facts", "mutex", "win32_create",
                                  "engine_create", "session_facts", "plugins_registered",
                                  "core_channel_ready", "first_raster_callback", "show_window"));
  EXPECT_EQ(OfStage(log, "mutex")[0]["already_exists"], false);
  EXPECT_EQ(OfStage(log, "session_facts")[0]["gpu_adapter"], "engine_not_created");
  EXPECT_EQ(OfStage(log, "session_facts")[1]["gpu_adapter"], "Stand-in Adapter");
  EXPECT_TRUE(OfStage(log, "first_raster_callback")[0]["ms_to_first_raster"].is_number_integer());
  EXPECT_THAT(host.error_lines(), Contains("VPN Manager initialized successfully!"));

  // The plug-ins in their order; the host asks for one on its own behalf.
  std::vector<std::string> asked;
  std::vector<std::string> registered;
  for (const auto& line : host.lines()) {
    if (line.contains("plugin")) {
      asked.push_back(line["plugin"]);
    } else if (line.contains("plugin_registered")) {
      registered.push_back(line["plugin_registered"]);
    }
    EXPECT_FALSE(line.contains("violation")) << line;
  }
  EXPECT_THAT(registered,
              ElementsAre("AppLinksPluginCApi", "ConnectivityPlusWindowsPlugin",
                          "FlutterSecureStorageWindowsPlugin", "ScreenRetrieverWindowsPluginCApi",
                          "SharePlusWindowsPluginCApi", "TrayManagerPlugin", "UrlLauncherWindows",
                          "WindowManagerPlugin"));
  std::erase(asked, "SentryFlutterPlugin");
  EXPECT_EQ(asked, registered);
}

TEST(Start, LeavesAWindowThatNeverDrewHidden) {
  const HostUser user;
  HostProcess host(user, {.environment = kManualFrames});
  EXPECT_EQ(host.Finish(), 0);
  EXPECT_TRUE(host.Matching({{"window", "shown"}}).empty());
  EXPECT_TRUE(OfStage(user.StartupLog(), "show_window").empty());
}

TEST(Start, HandsEveryArgumentToTheInterface) {
  const HostUser user;
  const std::vector<std::string> arguments{"--elevated-restart",      "--post-install-restart",
                                           "--admin-bat-shim",        "korvane://import?x=a b",
                                           "\"quoted\" \\",           "",
                                           "\xd0\xbf\xd1\x80\xd0\xbe"};
  HostProcess host(user, {.arguments = arguments});
  host.Await({{"engine",
               {{"arguments", arguments},
                {"assets_path", "data\\flutter_assets"},
                {"icu_data_path", "data\\icudtl.dat"},
                {"aot_library_path", "data\\app.so"},
                {"impeller_mode", 2}}}});
  EXPECT_EQ(host.Finish(), 0);
}

TEST(Start, EndsWithOneWhenTheEngineOrItsViewRefuses) {
  for (const auto* refused : {"engine", "view_controller", "view"}) {
    const HostUser user;
    HostProcess host(user, {.environment = {{"KORVANE_CONSOLE_FAIL", refused}}});
    EXPECT_EQ(host.WaitForExit(), kRefusedStart) << refused << "\n" << host.Transcript();
    const auto log = user.StartupLog();
    ASSERT_FALSE(log.empty());
    EXPECT_THAT(StagesOf(log, log[0]["run_id"]),
                ElementsAre("process_start", "session_facts", "mutex", "win32_create",
                            "engine_create", "engine_create_failed", "window_create_failed"))
        << refused;
    EXPECT_TRUE(host.Matching({{"window", "shown"}}).empty());
  }
}

TEST(Start, NamesWhyThereIsNoAdapter) {
  const struct {
    const char* failing;
    const char* told;
  } rows[] = {
      {"graphics_adapter", "graphics_adapter_unavailable"},
      {"adapter_description", "adapter_description_failed"},
      {"adapter_encoding", "adapter_description_encoding_failed"},
  };
  for (const auto& row : rows) {
    const HostUser user;
    HostProcess host(user, {.environment = {{"KORVANE_CONSOLE_FAIL", row.failing}}});
    EXPECT_EQ(host.Finish(), 0);
    const auto log = user.StartupLog();
    EXPECT_EQ(OfStage(log, "session_facts").at(1)["gpu_adapter"], row.told);
    EXPECT_EQ(OfStage(log, row.told).size(), 1U);
  }
}

}  // namespace
}  // namespace korvane::test
