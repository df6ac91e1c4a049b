#include "launch/win32_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"
#include "support/flutter/fake_flutter_library.h"

namespace korvane {
namespace {

using platform::MessageData;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kClass[] = "FLUTTER_RUNNER_WIN32_WINDOW";

class PlainWindow : public Win32Window {
 public:
  explicit PlainWindow(test::CallJournal& journal) : journal_(journal) {}
  bool accept = true;

 protected:
  bool OnCreate() override {
    journal_.Add("OnCreate()");
    return accept;
  }
  void OnDestroy() override { journal_.Add("OnDestroy()"); }

 private:
  test::CallJournal& journal_;
};

class Win32WindowTest : public testing::Test {
 protected:
  Win32WindowTest() {
    StartupRecorder::instance();
    machine_.journal.Take();
  }

  bool Create() { return window_->Create(L"Korvane", {10, 10}, {1280, 800}); }

  // Creates the window and forgets what that took.
  void CreateQuietly() {
    ASSERT_TRUE(Create());
    machine_.journal.Take();
  }

  platform::MessageResult Send(std::uint32_t message, platform::MessageParameter parameter = 0,
                               MessageData data = 0) {
    return machine_.windows.Send(window_->GetHandle(), message, parameter, data);
  }

  std::vector<std::string> Calls() { return machine_.journal.Take(); }

  void SetTheme(std::uint32_t light) {
    machine_.registry.values
        [L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize\\"
         L"AppsUseLightTheme"] = light;
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
  std::unique_ptr<PlainWindow> window_ = std::make_unique<PlainWindow>(machine_.journal);
};

TEST_F(Win32WindowTest, AWindowIsMadeInTheToldOrderAndNotShown) {
  SetTheme(0);
  ASSERT_TRUE(Create());
  EXPECT_THAT(
      Calls(),
      ElementsAre("OnDestroy()", "RegisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW, 3, 101)",
                  "MonitorAt(10, 10)", "LoadThemeLibrary()", "Theme135(1)",
                  "Create(FLUTTER_RUNNER_WIN32_WINDOW, Korvane, 0xcf0000, 10, 10, 1280, 800)",
                  "SetWindowProperty(main, Korvane.ActivationProtocol, 1)",
                  "AllowMessage(main, 0x802b)", "log: win32_create", "EnableNonClientDpiScaling()",
                  "DefaultProcedure(main, 0x81)", "SetDarkTitleBar(1)", "OnCreate()"));
}

TEST_F(Win32WindowTest, PlaceAndSizeAreScaledAndCut) {
  struct Row {
    std::uint32_t dpi;
    WindowOrigin origin;
    WindowSize size;
    std::string made;
  };
  const Row rows[] = {
      {96, {10, 10}, {1280, 800}, "10, 10, 1280, 800"},
      {144, {10, 10}, {1280, 800}, "15, 15, 1920, 1200"},
      {120, {10, -9}, {801, 803}, "12, -11, 1001, 1003"},
  };
  for (const Row& row : rows) {
    test::fake_flutter::SetMonitorDpi(row.dpi);
    ASSERT_TRUE(window_->Create(L"x", row.origin, row.size));
    EXPECT_THAT(Calls(),
                Contains("Create(" + std::string(kClass) + ", x, 0xcf0000, " + row.made + ")"));
  }
}

TEST_F(Win32WindowTest, ARefusedPropertyOrFilterIsRecordedAndSurvived) {
  machine_.windows.Fail("SetWindowProperty", 8);
  machine_.windows.Fail("AllowMessage", 87);
  EXPECT_TRUE(Create());
  EXPECT_THAT(machine_.Logged("activation_protocol_property_failed"),
              ElementsAre(nlohmann::json{{"os_error", 8}}));
  EXPECT_THAT(machine_.Logged("activation_message_filter_failed"),
              ElementsAre(nlohmann::json{{"os_error", 87}}));
}

TEST_F(Win32WindowTest, CreateFailsWithoutAWindow) {
  machine_.windows.Fail("RegisterWindowClass", 1410);  // shows up as no window
  EXPECT_FALSE(Create());
  EXPECT_THAT(Calls(), Not(Contains("OnCreate()")));
  // The class counts as registered: a later attempt doesn't ask again.
  EXPECT_FALSE(Create());
  EXPECT_THAT(Calls(), Not(Contains(testing::StartsWith("RegisterWindowClass"))));
}

TEST_F(Win32WindowTest, CreateFailsWhenOnCreateRefuses) {
  window_->accept = false;
  EXPECT_FALSE(Create());
}

TEST_F(Win32WindowTest, ASecondCreateDestroysTheFirstWindow) {
  CreateQuietly();
  ASSERT_TRUE(Create());
  const auto calls = Calls();
  EXPECT_THAT(calls, Contains("Destroy(main)"));
  // Once directly, and once from within the destruction.
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "OnDestroy()"), 2);
  EXPECT_EQ(machine_.Logged("win32_create").size(), 2u);
}

TEST_F(Win32WindowTest, DestroyTakesThePropertiesAndEndsTheLoopWhenAsked) {
  CreateQuietly();
  EXPECT_EQ(Send(platform::kWmDestroy), 0);
  EXPECT_THAT(Calls(), Not(Contains("PostQuit(0)")));
  CreateQuietly();
  window_->SetQuitOnClose(true);
  window_->Destroy();
  EXPECT_THAT(Calls(), ElementsAre("OnDestroy()", "Destroy(main)",
                                   "RemoveWindowProperty(main, Korvane.ActivationProtocol)",
                                   "RemoveWindowProperty(main, Korvane.FirstRaster)", "OnDestroy()",
                                   "PostQuit(0)"));
  EXPECT_EQ(window_->GetHandle(), nullptr);
  window_->Destroy();
  EXPECT_THAT(Calls(), ElementsAre("OnDestroy()"));
}

TEST_F(Win32WindowTest, TheClassGoesWithTheLastObject) {
  CreateQuietly();
  auto other = std::make_unique<PlainWindow>(machine_.journal);
  other.reset();
  EXPECT_THAT(Calls(), IsEmpty());
  window_.reset();
  // Nothing of the derived class is reached. The class is given back twice: once while the window
  // is being destroyed, which the system refuses, and once afterwards.
  EXPECT_THAT(Calls(),
              ElementsAre("Destroy(main)", "RemoveWindowProperty(main, Korvane.ActivationProtocol)",
                          "RemoveWindowProperty(main, Korvane.FirstRaster)",
                          "UnregisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW)",
                          "UnregisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW)"));
}

TEST_F(Win32WindowTest, TheChildCoversTheClientArea) {
  CreateQuietly();
  Send(platform::kWmSize);
  Send(platform::kWmActivate);
  EXPECT_THAT(Calls(), ElementsAre("ClientRectangle(main)"));

  window_->SetChildContent(machine_.windows.AddNamed("view"));
  EXPECT_THAT(Calls(), ElementsAre("SetParent(view, main)", "ClientRectangle(main)",
                                   "Move(view, 0, 0, 800, 600)", "SetFocus(view)"));
  machine_.windows.client_area = {0, 0, 640, 480};
  EXPECT_EQ(Send(platform::kWmSize), 0);
  EXPECT_EQ(Send(platform::kWmActivate), 0);
  EXPECT_THAT(Calls(),
              ElementsAre("ClientRectangle(main)", "Move(view, 0, 0, 640, 480)", "SetFocus(view)"));
}

TEST_F(Win32WindowTest, ANewDensityBringsItsPlace) {
  CreateQuietly();
  const platform::Rectangle suggested{-20, 30, 1900, 1230};
  EXPECT_EQ(Send(platform::kWmDpiChanged, 0x00900090, reinterpret_cast<MessageData>(&suggested)),
            0);
  EXPECT_THAT(Calls(), ElementsAre("Place(main, -20, 30, 1920, 1200)"));
  EXPECT_EQ(Send(platform::kWmDpiChanged, 0x00900090, 0), 0);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(Win32WindowTest, OnlyChangedColorsAreTakenUp) {
  CreateQuietly();
  EXPECT_EQ(Send(platform::kWmDwmColorizationColorChanged), 0);
  EXPECT_THAT(Calls(), IsEmpty());  // no setting, no change
  SetTheme(0);
  Send(platform::kWmDwmColorizationColorChanged);
  SetTheme(2);
  Send(platform::kWmDwmColorizationColorChanged);
  EXPECT_THAT(Calls(), ElementsAre("SetDarkTitleBar(1)", "SetDarkTitleBar(0)"));
  EXPECT_EQ(
      Send(platform::kWmSettingChange, 0, reinterpret_cast<MessageData>(L"ImmersiveColorSet")), 0);
  EXPECT_THAT(Calls(), ElementsAre("SetDarkTitleBar(0)", "Theme104()", "Theme136()"));
  for (const wchar_t* text : {L"immersivecolorset", L"ImmersiveColorSet2", L"", L"Policy"}) {
    EXPECT_EQ(Send(platform::kWmSettingChange, 0, reinterpret_cast<MessageData>(text)), 77);
    EXPECT_THAT(Calls(), ElementsAre("DefaultProcedure(main, 0x1a)"));
  }
  EXPECT_EQ(Send(platform::kWmSettingChange), 77);
  EXPECT_THAT(Calls(), ElementsAre("DefaultProcedure(main, 0x1a)"));
}

TEST_F(Win32WindowTest, EverythingElseIsTheSystems) {
  CreateQuietly();
  EXPECT_EQ(Send(platform::kWmClose, 1, 2), 77);
  EXPECT_THAT(Calls(), ElementsAre("DefaultProcedure(main, 0x10)"));
  // As ahead of WM_NCCREATE, when the window knows of no object yet.
  machine_.windows.SetUserData(window_->GetHandle(), nullptr);
  EXPECT_EQ(Send(platform::kWmSize), 77);
  machine_.windows.SetUserData(window_->GetHandle(), window_.get());
}

struct ThemeRow {
  const char* name;
  bool has_library;
  std::set<std::uint16_t> functions;
  std::optional<std::uint32_t> build;
  std::string calls;
};

void PrintTo(const ThemeRow& row, std::ostream* out) { *out << row.name; }

class ThemeLibraryTest : public Win32WindowTest, public testing::WithParamInterface<ThemeRow> {};

TEST_P(ThemeLibraryTest, UsesWhatIsThere) {
  const ThemeRow& row = GetParam();
  machine_.appearance.has_theme_library = row.has_library;
  machine_.appearance.theme_functions = row.functions;
  machine_.appearance.build = row.build;
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Create());  // the library is looked at once
  Send(platform::kWmSettingChange, 0, reinterpret_cast<MessageData>(L"ImmersiveColorSet"));
  std::string calls;
  for (const std::string& call : Calls()) {
    calls += call.find("Theme") != std::string::npos ? call : "";
  }
  EXPECT_EQ(calls, "LoadThemeLibrary()" + row.calls);
}

const std::set<std::uint16_t> kAll = {104, 135, 136};
const std::set<std::uint16_t> kLast = {136};

INSTANTIATE_TEST_SUITE_P(
    Rows, ThemeLibraryTest,
    testing::Values(ThemeRow{"Everything", true, kAll, 17763, "Theme135(1)Theme104()Theme136()"},
                    ThemeRow{"LaterMeaning", true, kAll, 18362, "Theme135(1)Theme104()Theme136()"},
                    ThemeRow{"BuildBeforeDarkMode", true, kAll, 17762, "Theme104()Theme136()"},
                    ThemeRow{"UnknownBuild", true, kAll, std::nullopt, "Theme104()Theme136()"},
                    ThemeRow{"MissingEntries", true, kLast, 19045, "Theme136()"},
                    ThemeRow{"NoLibrary", false, kAll, 19045, ""}));

}  // namespace
}  // namespace korvane
