#include "system/elevation_takeover.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "support/fake_machine.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kToken[] = "0123ABCD00EF4001800A0102030405FF";
constexpr char kOwnSid[] = "S-1-5-21-1-2-3-1001";

test::FakeMachine& Machine() { return test::FakeMachine::Get(); }

// Puts the machine in force.
class TakeoverTest : public testing::Test {
 protected:
  TakeoverTest() { Machine(); }
};
class TakeoverParent : public TakeoverTest {};
class TakeoverChild : public TakeoverTest {};

std::string Event(const std::string& kind) {
  return std::string("Local\\Korvane.Takeover.") + kToken + "." + kind;
}

// Runs the step and gives the code with which the process ended in it, if it did.
template <typename Step>
std::optional<std::uint32_t> ExitCodeOf(const Step& step) {
  try {
    step();
  } catch (const test::ProcessExit& exit) {
    return exit.code;
  }
  return std::nullopt;
}

TEST_F(TakeoverParent, PostsTheHandOverWhenTheChildHasSignalled) {
  SetTakeoverWindow(Machine().windows.AddNamed("main"));
  EXPECT_EQ(RequestElevatedTakeover(), TakeoverResult::kHandshake);
  EXPECT_THAT(
      Machine().journal.Take(),
      ElementsAre("EnterApartment(6)", "CreateNamedEvent(" + Event("Request") + ")",
                  "CreateNamedEvent(" + Event("Ready") + ")",
                  std::string("LaunchElevated(C:\\Korvane\\korvane.exe, --elevated-restart "
                              "--takeover-token=") +
                      kToken + " --parent-sid=" + kOwnSid + ")",
                  std::string("err: [ProxyManager] Takeover armed (token=") + kToken +
                      "); waiting for child handshake...",
                  "WaitAny(Request, child, 30000)",
                  "err: [ProxyManager] Takeover Request received; posting WM_APP_TAKEOVER_EXIT",
                  "Post(main, 0x802a, 0, 0)", "CloseHandle(Request)", "CloseHandle(Ready)",
                  "CloseHandle(child)", "LeaveApartment()"));
}

TEST_F(TakeoverParent, GoesOnWithoutTheReadyEvent) {
  SetTakeoverWindow(Machine().windows.AddNamed("main"));
  Machine().objects.event_failures["Ready"] = 5;
  EXPECT_EQ(RequestElevatedTakeover(), TakeoverResult::kHandshake);
  EXPECT_THAT(Machine().journal.Take(), Not(Contains("CloseHandle(Ready)")));
}

TEST_F(TakeoverParent, LeavesAnApartmentOnlyWhenItEnteredOne) {
  for (const auto& [result, leaves] : {std::pair<std::int32_t, bool>{0, true},
                                       {1, true},
                                       {static_cast<std::int32_t>(0x80010106), false}}) {
    Machine().process.apartment_result = result;
    Machine().elevation.launched = platform::Status::Fail(platform::kErrorCancelled);
    EXPECT_EQ(RequestElevatedTakeover(), TakeoverResult::kCancelled);
    EXPECT_EQ(Machine().journal.Take().back() == "LeaveApartment()", leaves) << result;
  }
}

struct SetupRow {
  const char* name;
  std::function<void(test::FakeMachine&)> arrange;
  TakeoverResult result;
  std::string line;
  bool armed;  // the two events were there, and are closed
};

void PrintTo(const SetupRow& row, std::ostream* out) { *out << row.name; }

class TakeoverSetupTest : public testing::TestWithParam<SetupRow> {};

TEST_P(TakeoverSetupTest, FailsWithItsLineAndKeepsNothing) {
  const SetupRow& row = GetParam();
  row.arrange(Machine());
  EXPECT_EQ(RequestElevatedTakeover(), row.result);
  EXPECT_EQ(Machine().errors.lines().back(), "[ProxyManager] " + row.line);
  std::string closed;
  for (const std::string& call : Machine().journal.Take()) {
    closed += call.starts_with("CloseHandle") ? call : "";
  }
  EXPECT_EQ(closed, row.armed ? "CloseHandle(Request)CloseHandle(Ready)" : "");
}

using NoPath = platform::Result<platform::ExecutablePath>;
using NoGuid = platform::Result<platform::Guid>;

INSTANTIATE_TEST_SUITE_P(
    Rows, TakeoverSetupTest,
    testing::Values(
        SetupRow{"NoPath", [](auto& machine) { machine.process.executable = NoPath::Fail(8); },
                 TakeoverResult::kFailed, "Failed to get executable path. Error: 8", false},
        SetupRow{"NoSid", [](auto& machine) { machine.elevation.sid = L""; },
                 TakeoverResult::kFailed, "Takeover: failed to capture SID/token", false},
        SetupRow{"NoToken",
                 [](auto& machine) { machine.identifiers.guid = NoGuid::Fail(0x8000FFFF); },
                 TakeoverResult::kFailed, "Takeover: failed to capture SID/token", false},
        SetupRow{"NoEvent", [](auto& machine) { machine.objects.event_failures["Request"] = 5; },
                 TakeoverResult::kFailed, "Failed to create Request event. Error: 5", false},
        SetupRow{"Declined",
                 [](auto& machine) { machine.elevation.launched = platform::Status::Fail(1223); },
                 TakeoverResult::kCancelled, "Takeover: UAC cancelled", true},
        SetupRow{"NotLaunched",
                 [](auto& machine) { machine.elevation.launched = platform::Status::Fail(2); },
                 TakeoverResult::kFailed, "Takeover: ShellExecuteExW failed. Error: 2", true}));

TEST_F(TakeoverParent, JudgesWhatEndedTheWait) {
  struct Row {
    std::string sentence;
    platform::WaitOutcome outcome;
    platform::Result<std::uint32_t> exit_code;
    TakeoverResult result;
    std::string line;
  };
  const platform::WaitOutcome ended{1, 0};
  const platform::WaitOutcome late{258, 0};
  const platform::WaitOutcome failed{0xFFFFFFFF, 6};
  const auto unread = platform::Result<std::uint32_t>::Fail(5);
  using enum TakeoverResult;
  const Row rows[] = {
      {"another user", ended, 279381987u, kDifferentUser, "failed: ElevatedAsDifferentUser"},
      {"a crash", ended, 1u, kChildDied, "failed: ChildDiedBeforeHandshake (exit=1)"},
      {"an exit code like a crash's", ended, 0xC0000005u, kChildDied,
       "failed: ChildDiedBeforeHandshake (exit=3221225477)"},
      {"an end that can't be read", ended, unread, kChildDied,
       "failed: ChildDiedBeforeHandshake (exit=0)"},
      {"nobody came", late, 0u, kTimeout, "failed: TakeoverRequestTimeout"},
      {"a failed wait", failed, 0u, kChildDied, "wait failed. Error: 6"},
  };
  for (const Row& row : rows) {
    Machine().objects.wait_any_outcome = row.outcome;
    Machine().elevation.exit_code = row.exit_code;
    EXPECT_EQ(RequestElevatedTakeover(), row.result) << row.sentence;
    const auto calls = Machine().journal.Take();
    EXPECT_THAT(std::vector<std::string>(calls.end() - 5, calls.end()),
                ElementsAre("err: [ProxyManager] Takeover " + row.line, "CloseHandle(Request)",
                            "CloseHandle(Ready)", "CloseHandle(child)", "LeaveApartment()"))
        << row.sentence;
  }
}

void ReleaseMutexOfTest() { Machine().journal.Add("release the mutex"); }

TEST_F(TakeoverParent, WithoutAWindowItExitsByItself) {
  SetTakeoverMutexRelease(ReleaseMutexOfTest);
  struct Row {
    platform::WindowHandle window;
    std::string error;
  };
  for (const Row& row : {Row{nullptr, "0"}, Row{Machine().windows.AddNamed("stale"), "1400"}}) {
    Machine().windows.Fail("Post", 1400);
    SetTakeoverWindow(row.window);
    EXPECT_EQ(ExitCodeOf(RequestElevatedTakeover), 0u);
    const auto calls = Machine().TakeCallsWithout({"file: ", "Post"});
    EXPECT_THAT(std::vector<std::string>(calls.end() - 6, calls.end()),
                ElementsAre("err: [ProxyManager] No main HWND or PostMessage failed (err=" +
                                row.error + "); committing to direct ExitProcess(0)",
                            "CloseHandle(Request)", "CloseHandle(Ready)", "CloseHandle(child)",
                            "release the mutex", "Exit(0)"));
  }
}

std::vector<std::string> ChildArguments(const std::string& token, const std::string& sid) {
  return {"--elevated-restart", "--takeover-token=" + token, "--parent-sid=" + sid};
}

TEST_F(TakeoverChild, SignalsItsParent) {
  RunTakeoverChildCheck(ChildArguments("aBc", kOwnSid));
  EXPECT_THAT(Machine().journal.Take(),
              ElementsAre("OpenNamedEvent(Local\\Korvane.Takeover.aBc.Request)",
                          "SetEvent(Request)", "CloseHandle(Request)",
                          "err: [ProxyManager] Takeover Request signalled "
                          "(Local\\Korvane.Takeover.aBc.Request)"));
}

TEST_F(TakeoverChild, GoesOnWhenThereIsNobodyToSignal) {
  Machine().objects.event_failures["Request"] = 2;
  RunTakeoverChildCheck(ChildArguments("abc", kOwnSid));
  EXPECT_EQ(Machine().errors.lines().back(),
            "[ProxyManager] Failed to open takeover Request event. Error: 2");
}

TEST_F(TakeoverChild, OnlyBothArgumentsMakeAChild) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"--takeover-token=" + std::string(kToken)},
                                             {"--parent-sid=S-1-5-21-9"},
                                             {"--takeover-token", "--parent-sid"}}) {
    RunTakeoverChildCheck(arguments);
  }
  EXPECT_THAT(Machine().journal.Take(), IsEmpty());
}

TEST_F(TakeoverChild, TheFirstOfEachArgumentCountsAndTheOwnSidMayDifferInCase) {
  Machine().elevation.sid = L"s-1-5-21-1-2-3-1001";
  auto arguments = ChildArguments("abc", kOwnSid);
  arguments.emplace_back("--takeover-token=zz");
  arguments.emplace_back("--parent-sid=S-1-5-21-9");
  EXPECT_EQ(ExitCodeOf([&] { RunTakeoverChildCheck(arguments); }), std::nullopt);
}

TEST_F(TakeoverChild, MalformedArgumentsEndTheProcess) {
  struct Row {
    std::string sentence;
    std::string token;
    std::string sid;
    bool refused;
  };
  const std::string sid = kOwnSid;
  const Row rows[] = {
      {"an empty token", "", sid, true},
      {"the longest token", std::string(64, 'F'), sid, false},
      {"one digit more", std::string(65, 'F'), sid, true},
      {"a letter that is no digit", "abcg", sid, true},
      {"another name below", "a.b", sid, true},
      {"an empty SID", "abc", "", true},
      {"a SID of 4", "abc", "S-1-", true},
      {"a SID of 257", "abc", "S-" + std::string(255, '1'), true},
      {"a strange letter", "abc", "S-1-5-21-x", true},
      {"a small first letter", "abc", "s-1-5-21-1-2-3-1001", true},
      {"not a SID's beginning", "abc", "1-S-5-21-1", true},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ExitCodeOf([&] { RunTakeoverChildCheck(ChildArguments(row.token, row.sid)); }),
              row.refused ? std::optional(279381987u) : std::nullopt)
        << row.sentence;
    EXPECT_EQ(
        Machine().errors.lines().back() == "[ProxyManager] Takeover: rejecting malformed token/SID",
        row.refused)
        << row.sentence;
  }
}

TEST_F(TakeoverChild, AnotherUsersProcessIsRefused) {
  struct Row {
    std::wstring own;
    std::string given;
  };
  for (const Row& row : {Row{L"S-1-5-21-9", kOwnSid}, Row{L"", kOwnSid},
                         Row{L"S-1-5-21-1", "S-" + std::string(254, '1')}}) {
    Machine().elevation.sid = row.own;
    EXPECT_EQ(ExitCodeOf([&] { RunTakeoverChildCheck(ChildArguments("abc", row.given)); }),
              279381987u);
    EXPECT_EQ(Machine().errors.lines().back(),
              "[ProxyManager] Takeover SID mismatch (parent='" + row.given + "', child='" +
                  test::Narrow(row.own) + "'); exiting USER_MISMATCH");
  }
  EXPECT_THAT(Machine().journal.Take(), Not(Contains(testing::StartsWith("OpenNamedEvent"))));
}

}  // namespace
}  // namespace korvane
