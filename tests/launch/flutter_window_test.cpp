#include "launch/flutter_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "launch/instance_mutex.h"
#include "launch/window_messages.h"
#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"
#include "support/flutter/fake_flutter_library.h"
#include "system/elevation_takeover.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane {
namespace {

namespace fake_flutter = test::fake_flutter;
using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class FlutterWindowTest : public testing::Test {
 protected:
  FlutterWindowTest() {
    StartupRecorder::instance();
    machine_.journal.Take();
  }

  static flutter::DartProject Project() {
    flutter::DartProject project = flutter::DartProject::InFolder(L"data");
    project.impeller_mode = flutter::ImpellerMode::kDisabled;
    return project;
  }

  bool Create() { return window_->Create(L"Korvane", {10, 10}, {1280, 800}); }

  // Creates the window and forgets what that took.
  void CreateQuietly() {
    ASSERT_TRUE(Create());
    handle_ = window_->GetHandle();
    machine_.journal.Take();
  }

  platform::MessageResult Send(std::uint32_t message, platform::MessageParameter parameter = 0,
                               platform::MessageData data = 0) {
    return machine_.windows.Send(handle_, message, parameter, data);
  }

  std::vector<std::string> Calls() { return machine_.journal.Take(); }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
  std::unique_ptr<FlutterWindow> window_ = std::make_unique<FlutterWindow>(Project());
  platform::WindowHandle handle_ = nullptr;
};

TEST_F(FlutterWindowTest, IsTheOneThatATakeoverHandsOver) {
  CreateQuietly();
  EXPECT_EQ(RequestElevatedTakeover(), TakeoverResult::kHandshake);
  EXPECT_THAT(Calls(), Contains("Post(main, 0x802a, 0, 0)"));
}

TEST_F(FlutterWindowTest, ComesUpInTheToldOrderAndHidden) {
  ASSERT_TRUE(Create());
  const auto calls = machine_.TakeCallsWithout({"OnDestroy", "err: [", "err: Failed", "file: "});
  const auto from = std::find(calls.begin(), calls.end(), "RegisterSessionNotification(main)");
  EXPECT_THAT(
      std::vector<std::string>(from, calls.end()),
      ElementsAre("RegisterSessionNotification(main)", "ClientRectangle(main)",
                  "log: engine_create", "log: graphics_adapter_unavailable", "log: session_facts",
                  "log: plugins_registered", "err: VPN Manager initialized successfully!",
                  "log: core_channel_ready", "SetParent(unknown, main)", "ClientRectangle(main)",
                  "Move(unknown, 0, 0, 800, 600)", "SetFocus(unknown)"));
  EXPECT_TRUE(fake_flutter::HasReceiver("com.sundrelak.korvane/core"));
  EXPECT_TRUE(fake_flutter::HasReceiver("com.sundrelak.korvane/vpn"));
  EXPECT_EQ(vpn_state().event_window, window_->GetHandle());

  auto engine_calls = fake_flutter::Calls();
  EXPECT_THAT(std::vector<std::string>(engine_calls.end() - 2, engine_calls.end()),
              ElementsAre("EngineSetNextFrameCallback", "ViewControllerForceRedraw"));
}

TEST_F(FlutterWindowTest, WithoutAnEngineThereIsNoWindow) {
  fake_flutter::FailViewControllerCreate();
  EXPECT_FALSE(Create());
  window_.reset();
  const auto calls = Calls();
  EXPECT_THAT(calls, Contains("log: engine_create"));
  EXPECT_THAT(calls, Contains("log: engine_create_failed"));
  EXPECT_THAT(calls, Not(Contains("log: session_facts")));
  EXPECT_THAT(calls, Contains("Destroy(main)"));
  // Nobody undoes the registration on this path.
  EXPECT_THAT(calls, Not(Contains("UnregisterSessionNotification(main)")));
  EXPECT_THAT(fake_flutter::Faults(), IsEmpty());
}

TEST_F(FlutterWindowTest, ARefusedSessionRegistrationHasNothingToUndo) {
  machine_.windows.Fail("RegisterSessionNotification", 5);
  CreateQuietly();
  EXPECT_THAT(machine_.Logged("wts_registration_failed"), ElementsAre(json{{"os_error", 5}}));
  window_->Destroy();
  EXPECT_THAT(Calls(), Not(Contains("UnregisterSessionNotification(main)")));
}

TEST_F(FlutterWindowTest, ItsEndUndoesTheRegistrationAndDropsTheEngine) {
  machine_.windows.Fail("UnregisterSessionNotification", 6);
  CreateQuietly();
  window_->Destroy();
  EXPECT_THAT(Calls(),
              ElementsAre("UnregisterSessionNotification(main)", "log: wts_unregistration_failed",
                          "Destroy(main)", "RemoveWindowProperty(main, Korvane.ActivationProtocol)",
                          "RemoveWindowProperty(main, Korvane.FirstRaster)"));
  EXPECT_THAT(machine_.Logged("wts_unregistration_failed"), ElementsAre(json{{"os_error", 6}}));
  EXPECT_EQ(fake_flutter::Calls().back(), "ViewControllerDestroy");
  // Workers still post to the window that is gone, and never dispatch on their own thread.
  EXPECT_EQ(vpn_state().event_window, handle_);
  Send(kWmAppSessionFacts);
  EXPECT_EQ(machine_.Logged("session_facts").back().at("gpu_adapter"), "engine_not_created");
  EXPECT_EQ(Send(platform::kWmFontChange), 77);
  window_.reset();
  EXPECT_THAT(fake_flutter::Faults(), IsEmpty());
}

class ThrowingProcess : public test::FakeProcess {
 public:
  using FakeProcess::FakeProcess;
  platform::Result<platform::ExecutablePath> Executable() override {
    throw std::runtime_error("no path");
  }
};

TEST_F(FlutterWindowTest, AThrowOfTheVpnLayerCostsNoWindow) {
  ThrowingProcess process(machine_.journal);
  platform::Os os = platform::os();
  os.process = &process;
  const platform::ScopedOs scope(os);
  EXPECT_TRUE(Create());
  EXPECT_TRUE(machine_.errors.Has("VPN Manager initialization failed: no path"));
  EXPECT_FALSE(machine_.errors.Has("VPN Manager initialized successfully!"));
  EXPECT_TRUE(fake_flutter::HasReceiver("com.sundrelak.korvane/core"));
  EXPECT_TRUE(fake_flutter::DrawFrame());
  EXPECT_THAT(Calls(), Contains("log: show_window"));
}

TEST_F(FlutterWindowTest, TheFirstFrameShowsTheWindow) {
  CreateQuietly();
  ASSERT_TRUE(fake_flutter::DrawFrame());
  EXPECT_THAT(Calls(), ElementsAre("log: first_raster_callback",
                                   "SetWindowProperty(main, Korvane.FirstRaster, 1)",
                                   "Show(main, 1)", "log: show_window"));
  EXPECT_FALSE(fake_flutter::DrawFrame());  // once
}

TEST_F(FlutterWindowTest, RequestsBeforeTheFirstFrameAreFulfilledByIt) {
  CreateQuietly();
  machine_.windows.Fail("SetForeground");
  machine_.windows.Fail("SetWindowProperty", 8);
  EXPECT_EQ(Send(kWmAppActivateRequest, 501), 0);
  EXPECT_EQ(Send(kWmAppActivateRequest, 502), 0);
  EXPECT_THAT(Calls(), ElementsAre("log: activate_request", "log: activate_request"));
  EXPECT_THAT(machine_.Logged("activate_request"),
              ElementsAre(json{{"from_pid", 501}, {"first_raster", false}, {"action", "latched"}},
                          json{{"from_pid", 502}, {"first_raster", false}, {"action", "latched"}}));
  fake_flutter::DrawFrame();
  EXPECT_THAT(
      Calls(),
      ElementsAre("log: first_raster_callback", "SetWindowProperty(main, Korvane.FirstRaster, 1)",
                  "log: first_raster_property_failed", "Show(main, 9)", "SetForeground(main)",
                  "log: latched_foreground_denied", "log: show_window"));
  EXPECT_THAT(machine_.Logged("first_raster_property_failed"), ElementsAre(json::object()));
}

TEST_F(FlutterWindowTest, ARequestAfterwardsRestoresTheWindow) {
  CreateQuietly();
  fake_flutter::DrawFrame();
  Calls();
  EXPECT_EQ(Send(kWmAppActivateRequest, 503), 0);
  EXPECT_THAT(Calls(), ElementsAre("log: activate_request", "Show(main, 9)", "SetForeground(main)",
                                   "log: activation_shown"));
  machine_.windows.Fail("SetForeground");
  Send(kWmAppActivateRequest, 504);
  EXPECT_THAT(Calls(), ElementsAre("log: activate_request", "Show(main, 9)", "SetForeground(main)",
                                   "log: activation_foreground_denied", "log: activation_shown"));
  EXPECT_THAT(machine_.Logged("activate_request"),
              ElementsAre(json{{"from_pid", 503}, {"first_raster", true}, {"action", "restore"}},
                          json{{"from_pid", 504}, {"first_raster", true}, {"action", "restore"}}));
}

TEST_F(FlutterWindowTest, SystemMessagesAreRecordedAndGoOn) {
  CreateQuietly();
  EXPECT_EQ(Send(platform::kWmPowerBroadcast, 4), 77);
  EXPECT_EQ(Send(platform::kWmDisplayChange, 32, (1080 << 16) | 1920), 77);
  EXPECT_EQ(Send(platform::kWmDpiChanged, (120u << 16) | 144u), 0);
  EXPECT_EQ(Send(platform::kWmWtsSessionChange, 7), 77);
  EXPECT_EQ(Send(platform::kWmFontChange), 77);
  EXPECT_EQ(fake_flutter::Calls().back(), "EngineReloadSystemFonts");
  EXPECT_THAT(machine_.Logged("WM_POWERBROADCAST"), ElementsAre(json{{"code", 4}}));
  const auto event = [this](const std::string& stage) {
    json line = machine_.Logged(stage).at(0);
    line.at("last_display_event").erase("ms");
    return line;
  };
  EXPECT_EQ(
      event("WM_DISPLAYCHANGE"),
      (json{{"last_display_event",
             {{"code", 32}, {"width", 1920}, {"height", 1080}, {"event", "WM_DISPLAYCHANGE"}}}}));
  EXPECT_EQ(event("WM_DPICHANGED"), (json{{"last_display_event",
                                           {{"code", (120 << 16) | 144},
                                            {"dpi_x", 144},
                                            {"dpi_y", 120},
                                            {"event", "WM_DPICHANGED"}}}}));
  EXPECT_EQ(event("WM_WTSSESSION_CHANGE"),
            (json{{"last_display_event", {{"code", 7}, {"event", "WM_WTSSESSION_CHANGE"}}}}));
  // The engine has seen them all.
  EXPECT_THAT(fake_flutter::WindowMessages(), SizeIs(testing::Ge(4u)));
}

TEST_F(FlutterWindowTest, ABurstOfSessionChangesCostsOneSampling) {
  CreateQuietly();
  Send(platform::kWmWtsSessionChange, 7);
  Send(platform::kWmWtsSessionChange, 8);
  const auto sampled = machine_.Logged("session_facts").size();
  machine_.windows.RunQueue();
  EXPECT_EQ(machine_.Logged("session_facts").size(), sampled + 1);
  EXPECT_THAT(machine_.Logged("WM_WTSSESSION_CHANGE"), SizeIs(2));
  // The next one asks again, and again where its question was lost.
  machine_.windows.Fail("Post", 1816);
  Send(platform::kWmWtsSessionChange, 7);
  Send(platform::kWmWtsSessionChange, 8);
  EXPECT_THAT(machine_.Logged("session_facts_post_failed"),
              ElementsAre(json{{"os_error", 1816}}, json{{"os_error", 1816}}));
  EXPECT_THAT(Calls(), Contains("Post(main, 0x802c, 0, 0)"));
}

TEST_F(FlutterWindowTest, ASessionsEndIsNeitherAnsweredNorHeldUp) {
  CreateQuietly();
  EXPECT_EQ(Send(platform::kWmQueryEndSession, 0), 77);
  EXPECT_TRUE(machine_.files.Content("os_shutdown_marker"));
  EXPECT_EQ(Send(platform::kWmEndSession, 1), 77);
  EXPECT_TRUE(machine_.files.Content("os_shutdown_marker"));
  EXPECT_EQ(Send(platform::kWmEndSession, 0), 77);
  EXPECT_FALSE(machine_.files.Content("os_shutdown_marker")) << "the session goes on";
}

TEST_F(FlutterWindowTest, TheEngineMayConsumeAllButTheFirstTwoPrivateMessages) {
  CreateQuietly();
  PostVpnState("vpn_connecting");
  EXPECT_THAT(fake_flutter::Sent(), IsEmpty());
  machine_.windows.RunQueue();
  EXPECT_THAT(fake_flutter::Sent(), SizeIs(1));
  for (const std::uint32_t message : {kWmAppVpnDispatch, kWmAppActivateRequest, kWmAppSessionFacts,
                                      platform::kWmPowerBroadcast}) {
    fake_flutter::Consume(message, 1234);
  }
  PostVpnState("vpn_connected");
  EXPECT_EQ(Send(kWmAppVpnDispatch), 1234);
  EXPECT_THAT(fake_flutter::Sent(), SizeIs(1)) << "what was queued waits";
  EXPECT_EQ(Send(platform::kWmPowerBroadcast, 4), 1234);
  EXPECT_THAT(machine_.Logged("WM_POWERBROADCAST"), SizeIs(1));
  EXPECT_EQ(Send(kWmAppActivateRequest, 5), 0);
  EXPECT_EQ(Send(kWmAppSessionFacts), 0);
}

TEST_F(FlutterWindowTest, AHandOverGivesUpTheMutexThenTheWindow) {
  CreateQuietly();
  SetInstanceMutex(machine_.objects.NewHandle("mutex"), true);
  std::uint32_t exit_code = 1;
  try {
    Send(kWmAppTakeoverExit);
  } catch (const test::ProcessExit& exit) {
    exit_code = exit.code;
  }
  EXPECT_EQ(exit_code, 0u);
  EXPECT_TRUE(machine_.files.Content("os_shutdown_marker"));
  EXPECT_THAT(machine_.TakeCallsWithout({"file: ", "RemoveWindow"}),
              ElementsAre("err: [FlutterWindow] WM_APP_TAKEOVER_EXIT \xE2\x80\x94 handing over to "
                          "elevated child",
                          "ReleaseMutex(mutex)", "CloseHandle(mutex)", "Destroy(main)",
                          "UnregisterSessionNotification(main)", "Exit(0)"));
}

}  // namespace
}  // namespace korvane
