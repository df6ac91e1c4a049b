#include "launch/activation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "launch/window_messages.h"
#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"

namespace korvane {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

class ActivationTest : public testing::Test {
 protected:
  ActivationTest() {
    StartupRecorder::instance();
    machine_.journal.Take();
  }

  platform::WindowHandle AddRunningWindow(bool speaks_protocol, std::uint32_t owner = 99) {
    const platform::WindowHandle window =
        machine_.windows.AddForeign(kWindowClass, kWindowTitle, owner);
    if (speaks_protocol) {
      static_cast<void>(
          machine_.windows.SetWindowProperty(window, L"Korvane.ActivationProtocol", 1));
      machine_.journal.Take();
    }
    return window;
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
};

TEST_F(ActivationTest, ARequestCarriesTheSendersProcess) {
  AddRunningWindow(true);
  ActivateExistingInstance();
  EXPECT_THAT(machine_.journal.Take(),
              ElementsAre("AllowForeground(99)", "Post(foreign, 0x802b, 4711, 0)",
                          "log: activate_existing_instance_posted"));
  EXPECT_THAT(machine_.Logged("activate_existing_instance_posted"),
              ElementsAre(nlohmann::json{{"target_pid", 99}}));
}

TEST_F(ActivationTest, ADeniedForegroundStillAsks) {
  AddRunningWindow(true);
  machine_.windows.Fail("AllowForeground");
  ActivateExistingInstance();
  EXPECT_THAT(
      machine_.journal.Take(),
      ElementsAre("AllowForeground(99)", "log: foreground_permission_denied",
                  "Post(foreign, 0x802b, 4711, 0)", "log: activate_existing_instance_posted"));
}

TEST_F(ActivationTest, AFailedPostIsRecordedWithoutAnErrorNumber) {
  AddRunningWindow(true);
  machine_.windows.Fail("Post", 5);
  ActivateExistingInstance();
  EXPECT_THAT(machine_.Logged("activation_post_failed"),
              ElementsAre(nlohmann::json{{"target_pid", 99}}));
}

TEST_F(ActivationTest, AWindowWithoutTheProtocolIsShownFromHere) {
  AddRunningWindow(false);
  ActivateExistingInstance();
  EXPECT_THAT(machine_.journal.Take(), ElementsAre("log: activate_existing_instance_legacy",
                                                   "Show(foreign, 9)", "SetForeground(foreign)"));
}

TEST_F(ActivationTest, ALegacyWindowMayRefuseTheForeground) {
  AddRunningWindow(false);
  machine_.windows.Fail("SetForeground");
  ActivateExistingInstance();
  EXPECT_THAT(machine_.Logged("legacy_foreground_denied"),
              ElementsAre(nlohmann::json{{"target_pid", 99}}));
}

TEST_F(ActivationTest, AnOwnerThatIsGoneIsRecorded) {
  AddRunningWindow(true, 0);
  ActivateExistingInstance();
  EXPECT_THAT(machine_.journal.Take(), ElementsAre("log: activate_existing_instance_pid_failed"));
  EXPECT_THAT(machine_.Logged("activate_existing_instance_pid_failed"),
              ElementsAre(nlohmann::json::object()));
}

TEST_F(ActivationTest, TheSearchPollsForTwoSecondsAndLooksNoMore) {
  machine_.windows.AddForeign(kWindowClass, L"Another", 99);
  ActivateExistingInstance();
  // 80 looks at intervals of 25 ms; the last sleep ends at the deadline, behind which none follows.
  EXPECT_THAT(machine_.clock.waits(), SizeIs(80));
  EXPECT_THAT(machine_.clock.waits(), Each(25u));
  EXPECT_THAT(machine_.Logged("activate_existing_instance_window_not_found"),
              ElementsAre(nlohmann::json::object()));
}

// A clock in whose time the window comes up.
class ClockWithAWindow : public test::FakeClock {
 public:
  explicit ClockWithAWindow(std::function<void()> appear) : appear_(std::move(appear)) {}
  void SleepMilliseconds(std::uint32_t milliseconds) override {
    FakeClock::SleepMilliseconds(milliseconds);
    if (waits().size() == 76) {  // after 1.9 seconds
      appear_();
    }
  }

 private:
  std::function<void()> appear_;
};

TEST_F(ActivationTest, AWindowThatComesUpLateIsFoundAtTheNextLook) {
  ClockWithAWindow clock([this] { AddRunningWindow(true); });
  platform::Os os = platform::os();
  os.clocks = &clock;
  const platform::ScopedOs scope(os);
  ActivateExistingInstance();
  EXPECT_THAT(clock.waits(), SizeIs(76));
  EXPECT_THAT(machine_.Logged("activate_existing_instance_posted"), SizeIs(1));
}

TEST_F(ActivationTest, TheNoticeIsExactAndItsMarkIsRemovedAfterwards) {
  ShowAdminBatShimNotice();
  EXPECT_THAT(
      machine_.journal.Take(),
      ElementsAre("ShowMessageBox(0x10030, Korvane <0xe2><0x20ac><0x201d> korvane_admin.bat is "
                  "deprecated|korvane_admin.bat is deprecated and will be removed in the next "
                  "update. Launch Korvane directly from the Start Menu <0xe2><0x20ac><0x201d> "
                  "elevation is now handled in-app.)",
                  "DeleteValue(user, Software\\Korvane\\Korvane, AdminBatShimSeen)"));
}

}  // namespace
}  // namespace korvane
