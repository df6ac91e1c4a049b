#include "flutter_boundary/flutter_engine.h"

#include "boundary_test.h"
#include "flutter_boundary/flutter_view_controller.h"
#include "flutter_boundary/plugin_registrant.h"
#include "gmock/gmock.h"
#include "support/flutter/fake_flutter_library.h"

namespace flutter {
namespace {

namespace fake = korvane::test::fake_flutter;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNoRegistrar[] =
    "Cannot get plugin registrar on an engine that isn't running; call Run first.";

class FlutterEngineTest : public BoundaryTest {
 protected:
  void TearDown() override { EXPECT_THAT(fake::Faults(), IsEmpty()); }

  DartProject project_ = DartProject::InFolder(L"data");
};

TEST_F(FlutterEngineTest, IsCreatedFromTheWholeProject) {
  project_.dart_entrypoint_arguments = {"--flag", "\xc3\xa9"};
  project_.engine_words = {1, 2, 3};
  project_.impeller_mode = ImpellerMode::kDisabled;
  project_.engine_flag = 1;
  const FlutterEngine engine(project_);
  const fake::Properties created = fake::CreatedWith();
  EXPECT_EQ(created.assets_path, L"data\\flutter_assets");
  EXPECT_EQ(created.icu_data_path, L"data\\icudtl.dat");
  EXPECT_EQ(created.aot_library_path, L"data\\app.so");
  EXPECT_EQ(created.dart_entrypoint, "");
  EXPECT_THAT(created.arguments, ElementsAre("--flag", "\xc3\xa9"));
  EXPECT_THAT(created.engine_words, ElementsAre(1, 2, 3));
  EXPECT_EQ(created.impeller_mode, 2);
  EXPECT_EQ(created.engine_flag, 1);
}

TEST_F(FlutterEngineTest, EngineOfItsOwnIsDestroyedOnce) {
  { const FlutterEngine engine(project_); }
  EXPECT_THAT(fake::Calls(), ElementsAre("EngineCreate", "EngineDestroy"));
}

TEST_F(FlutterEngineTest, ControllerTakesTheEngineOverAndEndsIt) {
  {
    const FlutterViewController controller(10, 20, project_);
    ASSERT_NE(controller.view(), nullptr);
    EXPECT_EQ(controller.view()->GetNativeWindow(), fake::ViewWindow());
    EXPECT_EQ(controller.engine()->handle(), fake::engine());
    EXPECT_NE(controller.engine()->messenger(), nullptr);
  }
  EXPECT_THAT(fake::Calls(),
              ElementsAre("EngineCreate", "ViewControllerCreate", "ViewControllerDestroy"));
  EXPECT_THAT(errors_.lines(), IsEmpty());
}

TEST_F(FlutterEngineTest, FailedControllerHasDestroyedItsEngineAlready) {
  fake::FailViewControllerCreate();
  {
    const FlutterViewController controller(10, 20, project_);
    EXPECT_EQ(controller.view(), nullptr);
    EXPECT_EQ(controller.engine()->handle(), nullptr);
  }
  EXPECT_THAT(fake::Calls(),
              ElementsAre("EngineCreate", "ViewControllerCreate", "(engine destroyed)"));
  EXPECT_THAT(errors_.lines(), ElementsAre("Failed to create view controller."));
}

TEST_F(FlutterEngineTest, WithoutAnEngineEveryOperationIsHarmless) {
  fake::FailEngineCreate();
  {
    FlutterViewController controller(10, 20, project_);
    EXPECT_EQ(controller.view(), nullptr);
    EXPECT_EQ(controller.engine()->messenger(), nullptr);
    errors_.Clear();
    controller.ForceRedraw();
    EXPECT_EQ(controller.HandleTopLevelWindowProc(nullptr, 5, 0, 0), std::nullopt);
    controller.engine()->ReloadSystemFonts();
    controller.engine()->SetNextFrameCallback([] {});
    EXPECT_EQ(controller.engine()->GetRegistrarForPlugin("X"), nullptr);
  }
  EXPECT_THAT(fake::Calls(), ElementsAre("EngineCreate"));
  EXPECT_THAT(errors_.lines(), ElementsAre(kNoRegistrar));
}

TEST_F(FlutterEngineTest, NextFrameCallbackRunsOnceAndMayRegisterTheNext) {
  const FlutterViewController controller(10, 20, project_);
  std::vector<std::string> frames;
  controller.engine()->SetNextFrameCallback([&] {
    frames.push_back("first");
    controller.engine()->SetNextFrameCallback([&] {
      frames.push_back("second");
      throw std::runtime_error("goes no further");
    });
  });
  EXPECT_TRUE(fake::DrawFrame());
  EXPECT_THAT(frames, ElementsAre("first"));
  EXPECT_TRUE(fake::DrawFrame());
  EXPECT_FALSE(fake::DrawFrame());
  EXPECT_THAT(frames, ElementsAre("first", "second"));
}

TEST_F(FlutterEngineTest, WindowMessageHasAResultOnlyWhenTheEngineConsumedIt) {
  FlutterViewController controller(10, 20, project_);
  fake::Consume(0x218, -5);
  int window = 0;
  EXPECT_EQ(controller.HandleTopLevelWindowProc(&window, 0x218, 4, -1), -5);
  EXPECT_EQ(controller.HandleTopLevelWindowProc(&window, 0x219, 0, 0), std::nullopt);
  const auto messages = fake::WindowMessages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].window, &window);
  EXPECT_EQ(messages[0].wparam, 4U);
  EXPECT_EQ(messages[0].lparam, -1);
}

TEST_F(FlutterEngineTest, PluginsAreRegisteredOneByOneInTheirOrder) {
  FlutterEngine engine(project_);
  korvane::RegisterPlugins(&engine);
  std::vector<std::string> expected = {"EngineCreate"};
  for (const std::string plugin :
       {"AppLinksPluginCApi", "ConnectivityPlusWindowsPlugin", "FlutterSecureStorageWindowsPlugin",
        "ScreenRetrieverWindowsPluginCApi", "SentryFlutterPlugin", "SharePlusWindowsPluginCApi",
        "TrayManagerPlugin", "UrlLauncherWindows", "WindowManagerPlugin"}) {
    expected.push_back("EngineGetPluginRegistrar " + plugin);
    if (plugin != "SentryFlutterPlugin") {  // nothing stands behind this name
      expected.push_back(plugin + "RegisterWithRegistrar " + plugin);
    }
  }
  EXPECT_EQ(fake::Calls(), expected);
}

TEST_F(FlutterEngineTest, PluginsAreHandedANullRegistrarAsItIs) {
  fake::FailEngineCreate();
  FlutterEngine engine(project_);
  korvane::RegisterPlugins(&engine);
  EXPECT_THAT(errors_.lines(), testing::SizeIs(9));
  EXPECT_EQ(fake::Calls().size(), 1U + 8U);
  EXPECT_EQ(fake::Calls().back(), "WindowManagerPluginRegisterWithRegistrar null");
}

}  // namespace
}  // namespace flutter
