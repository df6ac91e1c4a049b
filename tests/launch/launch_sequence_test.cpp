#include "launch/launch_sequence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "launch/window_messages.h"
#include "support/fake_machine.h"
#include "support/flutter/fake_flutter_library.h"
#include "system/elevation_takeover.h"

namespace korvane {
namespace {

namespace fake_flutter = test::fake_flutter;
using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;

constexpr char kCreateMutex[] =
    "CreateNamedMutex(Local\\Korvane_SingleInstance_5E88C2B6_1D2C_4C7A_8E2A_4D9F3A31B2F7, owned)";

class LaunchSequenceTest : public testing::Test {
 protected:
  LaunchSequenceTest() {
    // The user closes the window as soon as there is nothing else to do.
    machine_.windows.on_idle = [this] {
      const auto window = machine_.windows.Find(kWindowClass, kWindowTitle);
      if (window != nullptr) {
        static_cast<void>(machine_.windows.Destroy(window));
      }
    };
  }

  // The steps of this room, without those of the window and of the tunnel's libraries.
  std::vector<std::string> Steps() {
    return machine_.TakeCallsWithout(
        {"MonitorAt", "LoadTheme", "Theme", "SetWindowProperty", "AllowMessage", "Enable",
         "DefaultProcedure", "RegisterSession", "UnregisterSession", "ClientRectangle", "SetParent",
         "Move", "SetFocus", "RemoveWindowProperty", "err: ", "file: "});
  }

  static void ExpectInOrder(const std::vector<std::string>& calls,
                            const std::vector<std::string>& wanted) {
    auto at = calls.begin();
    for (const std::string& call : wanted) {
      at = std::find(at, calls.end(), call);
      ASSERT_NE(at, calls.end()) << "no " << call << " where it belongs in "
                                 << testing::PrintToString(calls);
    }
  }

  test::FakeMachine& machine_ = test::FakeMachine::Get();
};

TEST_F(LaunchSequenceTest, AFirstStartRunsItsStepsInOrder) {
  EXPECT_EQ(RunLaunchSequence(), 0);
  EXPECT_THAT(
      Steps(),
      ElementsAre("RestrictSearchPath()", "log: process_start", "AttachParentConsole()",
                  "EnterApartment(2)", "SetAppUserModelId(com.korvane.Client)",
                  "log: session_facts", "ArgumentVector()", kCreateMutex, "log: mutex",
                  "RegisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW, 3, 101)",
                  "Create(FLUTTER_RUNNER_WIN32_WINDOW, Korvane, 0xcf0000, 10, 10, 1280, 800)",
                  "log: win32_create", "log: engine_create", "log: graphics_adapter_unavailable",
                  "log: session_facts", "log: plugins_registered", "log: core_channel_ready",
                  "Destroy(main)", "PostQuit(0)", "ReleaseMutex(mutex)", "CloseHandle(mutex)",
                  "LeaveApartment()", "UnregisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW)"));
  EXPECT_THAT(machine_.Logged("mutex"), ElementsAre(json{{"already_exists", false}}));
  const json facts = machine_.Logged("session_facts").front();
  EXPECT_EQ(facts.at("gpu_adapter"), "engine_not_created");
  EXPECT_EQ(facts.at("renderer"), "impeller_disabled");
  EXPECT_EQ(facts.at("dpi_source"), "system");
}

TEST_F(LaunchSequenceTest, TheEngineGetsTheProjectAndEveryArgument) {
  machine_.process.arguments = {
      {L"korvane.exe", L"--elevated-restart", L"--admin-bat-shim", L"korvane://open?x=1"}};
  EXPECT_EQ(RunLaunchSequence(), 0);
  const fake_flutter::Properties created = fake_flutter::CreatedWith();
  EXPECT_EQ(created.assets_path, L"data\\flutter_assets");
  EXPECT_EQ(created.icu_data_path, L"data\\icudtl.dat");
  EXPECT_EQ(created.aot_library_path, L"data\\app.so");
  EXPECT_EQ(created.dart_entrypoint, "");
  EXPECT_THAT(created.arguments,
              ElementsAre("--elevated-restart", "--admin-bat-shim", "korvane://open?x=1"));
  EXPECT_THAT(created.engine_words, ElementsAre(0, 0, 0));
  EXPECT_EQ(created.impeller_mode, 2);
  EXPECT_EQ(created.engine_flag, 0);
  EXPECT_THAT(machine_.journal.Take(), Not(Contains(testing::StartsWith("ShowMessageBox"))));
}

TEST_F(LaunchSequenceTest, WithoutARestrictedSearchPathNothingHappens) {
  machine_.libraries.restricted = platform::Status::Fail(5);
  EXPECT_EQ(RunLaunchSequence(), 1);
  EXPECT_THAT(machine_.journal.Take(), ElementsAre("RestrictSearchPath()"));
  EXPECT_EQ(machine_.files.Content("startup.log"), std::nullopt);
}

struct ConsoleRow {
  const char* name;
  bool has_console, debugged, opens;
  std::string calls;
  bool resynchronised;
};

void PrintTo(const ConsoleRow& row, std::ostream* out) { *out << row.name; }

class ConsoleTest : public LaunchSequenceTest, public testing::WithParamInterface<ConsoleRow> {};

TEST_P(ConsoleTest, IsOpenedForADebuggerAlone) {
  const ConsoleRow& row = GetParam();
  machine_.process.has_console = row.has_console;
  machine_.process.debugged = row.debugged;
  machine_.process.console_opens = row.opens;
  RunLaunchSequence();
  std::string calls;
  for (const std::string& call : Steps()) {
    if (call == "AttachParentConsole()" || call == "DebuggerPresent()" || call == "OpenConsole()") {
      calls += call;
    }
  }
  EXPECT_EQ(calls, "AttachParentConsole()" + row.calls);
  const auto engine_calls = fake_flutter::Calls();
  EXPECT_EQ(std::count(engine_calls.begin(), engine_calls.end(), "ResyncOutputStreams"),
            row.resynchronised ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, ConsoleTest,
                         testing::Values(ConsoleRow{"ParentsIsThere", true, true, true, "", false},
                                         ConsoleRow{"NoneAndNobodyDebugs", false, false, true,
                                                    "DebuggerPresent()", false},
                                         ConsoleRow{"NoneWhileDebugged", false, true, true,
                                                    "DebuggerPresent()OpenConsole()", true},
                                         ConsoleRow{"NoneToBeHad", false, true, false,
                                                    "DebuggerPresent()OpenConsole()", false}));

TEST_F(LaunchSequenceTest, WithoutAWindowTheMutexAndTheApartmentAreLeftToTheSystem) {
  machine_.windows.Fail("Create", 1400);
  EXPECT_EQ(RunLaunchSequence(), 1);
  const auto steps = Steps();
  EXPECT_THAT(machine_.Logged("window_create_failed"), ElementsAre(json::object()));
  EXPECT_EQ(steps.back(), "UnregisterWindowClass(FLUTTER_RUNNER_WIN32_WINDOW)");
  EXPECT_THAT(steps, Not(Contains("ReleaseMutex(mutex)")));
  EXPECT_THAT(steps, Not(Contains("CloseHandle(mutex)")));
  EXPECT_THAT(steps, Not(Contains("LeaveApartment()")));
}

TEST_F(LaunchSequenceTest, WithoutAMutexAWindowOpensAllTheSame) {
  machine_.objects.mutex_has_handle = false;
  machine_.objects.mutex_code = 5;
  EXPECT_EQ(RunLaunchSequence(), 0);
  EXPECT_THAT(machine_.Logged("mutex_create_failed"), ElementsAre(json{{"os_error", 5}}));
  const auto steps = Steps();
  ExpectInOrder(steps, {"log: mutex_create_failed", "log: core_channel_ready", "LeaveApartment()"});
  EXPECT_THAT(steps, Not(Contains("ReleaseMutex(mutex)")));
}

TEST_F(LaunchSequenceTest, ASecondInstanceNotifiesActivatesAndLeaves) {
  machine_.process.arguments = {{L"korvane.exe", L"--admin-bat-shim"}};
  machine_.objects.mutex_code = platform::kErrorAlreadyExists;
  machine_.objects.wait_outcome = {platform::kWaitTimeout, 0};
  machine_.windows.AddForeign(kWindowClass, kWindowTitle, 99);
  EXPECT_EQ(RunLaunchSequence(), 0);
  const auto calls = machine_.journal.Take();
  ExpectInOrder(calls,
                {kCreateMutex, "log: mutex", "Wait(mutex, 0)", "log: instance_mutex_wait_timeout",
                 "DeleteValue(user, Software\\Korvane\\Korvane, AdminBatShimSeen)",
                 "log: activate_existing_instance_legacy", "CloseHandle(mutex)"});
  EXPECT_THAT(calls, Contains(testing::StartsWith("ShowMessageBox")));
  EXPECT_EQ(calls.back(), "CloseHandle(mutex)");  // not released, and the apartment isn't left
  EXPECT_THAT(calls, Not(Contains(testing::StartsWith("Create("))));
}

TEST_F(LaunchSequenceTest, ATakeoversChildSignalsBeforeItWaitsForTheMutex) {
  machine_.process.arguments = {{L"korvane.exe", L"--elevated-restart", L"--takeover-token=ABCD",
                                 L"--parent-sid=S-1-5-21-1-2-3-1001"}};
  machine_.objects.mutex_code = platform::kErrorAlreadyExists;
  machine_.objects.wait_outcome = {platform::kWaitAbandoned, 0};
  EXPECT_EQ(RunLaunchSequence(), 0);
  ExpectInOrder(machine_.journal.Take(),
                {"OpenNamedEvent(Local\\Korvane.Takeover.ABCD.Request)", "SetEvent(Request)",
                 kCreateMutex, "Wait(mutex, 30000)", "log: instance_mutex_abandoned",
                 "log: win32_create", "ReleaseMutex(mutex)"});
}

TEST_F(LaunchSequenceTest, ARefusedChildEndsBeforeTheMutexIsTouched) {
  machine_.process.arguments = {
      {L"korvane.exe", L"--takeover-token=ABCD", L"--parent-sid=S-1-5-21-9"}};
  try {
    RunLaunchSequence();
    FAIL() << "the process went on";
  } catch (const test::ProcessExit& exit) {
    EXPECT_EQ(exit.code, 279381987u);
  }
  EXPECT_THAT(machine_.journal.Take(), Not(Contains(kCreateMutex)));
}

TEST_F(LaunchSequenceTest, ATakeoverWithoutAWindowReleasesThisProcessesMutex) {
  machine_.windows.on_idle = [this] {
    const auto window = machine_.windows.Find(kWindowClass, kWindowTitle);
    machine_.windows.Fail("Post", 1400);
    EXPECT_THROW(static_cast<void>(RequestElevatedTakeover()), test::ProcessExit);
    static_cast<void>(machine_.windows.Destroy(window));
  };
  EXPECT_EQ(RunLaunchSequence(), 0);
  ExpectInOrder(machine_.journal.Take(), {"ReleaseMutex(mutex)", "CloseHandle(mutex)", "Exit(0)"});
}

}  // namespace
}  // namespace korvane
