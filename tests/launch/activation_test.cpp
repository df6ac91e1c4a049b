#include "launch/activation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "launch/window_messages.h"
#include "recorder/startup_recorder.h"
#include "support/fake_machine.h"

namespace korvane {
namespace {

using nlohmann::json;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

class ActivationTest : public testing::Test {
 protected:
  ActivationTest() {
    StartupRecorder::instance();
    machine_.journal.Take();
  }

  void AddRunningWindow(bool speaks_protocol, std::uint32_t owner) {
    const platform::WindowHandle window =
        machine_.windows.AddForeign(kWindowClass, kWindowTitle, owner);
    if (speaks_protocol) {
      static_cast<void>(
          machine_.windows.SetWindowProperty(window, L"Korvane.ActivationProtocol", 1));
      machine_.journal.Take();
    }
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
};

struct WindowRow {
  const char* name;
  bool speaks_protocol;
  std::uint32_t owner;
  const char* fails;
  std::string calls;
};

void PrintTo(const WindowRow& row, std::ostream* out) { *out << row.name; }

class RunningWindowTest : public ActivationTest, public testing::WithParamInterface<WindowRow> {};

TEST_P(RunningWindowTest, IsAskedOrShownAndTheResultIsRecorded) {
  const WindowRow& row = GetParam();
  AddRunningWindow(row.speaks_protocol, row.owner);
  machine_.windows.Fail(row.fails);
  ActivateExistingInstance();
  std::string calls;
  for (const std::string& call : machine_.journal.Take()) {
    calls += call + "; ";
    if (call.starts_with("log: ")) {
      const json fields = row.owner == 0 ? json::object() : json{{"target_pid", row.owner}};
      EXPECT_THAT(machine_.Logged(call.substr(5)), ElementsAre(fields)) << call;
    }
  }
  EXPECT_EQ(calls, row.calls);
}

const std::string kPost = "Post(foreign, 0x802b, 4711, 0); ";
const std::string kPosted = kPost + "log: activate_existing_instance_posted; ";
const std::string kAllow = "AllowForeground(99); ";
const std::string kDenied = "log: foreground_permission_denied; ";
const std::string kShow =
    "log: activate_existing_instance_legacy; Show(foreign, 9); SetForeground(foreign); ";

INSTANTIATE_TEST_SUITE_P(
    Rows, RunningWindowTest,
    testing::Values(
        WindowRow{"WithTheProtocol", true, 99, "", kAllow + kPosted},
        WindowRow{"DeniedForeground", true, 99, "AllowForeground", kAllow + kDenied + kPosted},
        WindowRow{"FailedPost", true, 99, "Post", kAllow + kPost + "log: activation_post_failed; "},
        WindowRow{"WithoutTheProtocol", false, 99, "", kShow},
        WindowRow{"RefusedForeground", false, 99, "SetForeground",
                  kShow + "log: legacy_foreground_denied; "},
        WindowRow{"NoOwner", true, 0, "", "log: activate_existing_instance_pid_failed; "}));

TEST_F(ActivationTest, TheSearchPollsForTwoSecondsAndLooksNoMore) {
  machine_.windows.AddForeign(kWindowClass, L"Another", 99);
  ActivateExistingInstance();
  // 80 looks at intervals of 25 ms; the last sleep ends at the deadline, behind which none follows.
  EXPECT_THAT(machine_.clock.waits(), SizeIs(80));
  EXPECT_THAT(machine_.clock.waits(), Each(25u));
  EXPECT_THAT(machine_.Logged("activate_existing_instance_window_not_found"),
              ElementsAre(json::object()));
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
  ClockWithAWindow clock([this] { AddRunningWindow(true, 99); });
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
