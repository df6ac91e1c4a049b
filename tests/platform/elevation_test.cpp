#include "platform/elevation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using test::ScopedEnvironment;
using test::SecondProcessRole;

constexpr std::uint32_t kPatientWaitMs = 60000;
constexpr std::uint32_t kStillActive = 259;
// Wider than the status of a Unix process.
constexpr std::uint32_t kWideCode = 0x10A707E3;

struct Words {
  const wchar_t* why;
  const wchar_t* parameters;
  std::vector<std::wstring> words;
};

// One launch each; the same table is read in the parent and in the child.
const std::vector<Words>& WordRows() {
  static const std::vector<Words> rows = {
      {L"options",
       L"--elevated-restart --takeover-token=0A --parent-sid=S-1-5",
       {L"--elevated-restart", L"--takeover-token=0A", L"--parent-sid=S-1-5"}},
      {L"blanks", L"  \"a b\"\tc\"d e\"f  ", {L"a b", L"cd ef"}},
      {L"an empty word", L"\"\" x", {L"", L"x"}},
      {L"backslashes", LR"(a\\b "a\\b\\" \\"x\" y")", {LR"(a\\b)", LR"(a\\b\)", LR"(\x" y)"}},
      // Three quotes make one, and the part that they belong to ends with them.
      {L"doubled quotes", LR"("a""b" """" """c d""")", {LR"(a"b ")", LR"("c)", LR"(d")"}},
      {L"other scripts",
       L"\"\x41F\x443\x442\x44C \x8DEF\" \xE9",
       {L"\x41F\x443\x442\x44C \x8DEF", L"\xE9"}},
      {L"no character at all",
       L"\xDCFF"
       L"a",
       {L"\xDCFF"
        L"a"}},
  };
  return rows;
}

std::vector<std::wstring> OwnWords() {
  std::vector<std::wstring> words = RealProcess().ArgumentVector().value();
  words.erase(words.begin());
  return words;
}

const SecondProcessRole kWordReader("elevated word reader", [] {
  const std::string row = RealProcess().EnvironmentVariable("KORVANE_TEST_ROW").value_or("");
  RealProcess().Exit(OwnWords() == WordRows().at(std::stoul(row)).words ? kWideCode : 1);
  return 0;
});

const SecondProcessRole kRightsTeller("elevated rights teller", [] {
  const bool administrator = RealElevation().IsAdministrator();
  const std::wstring sid = L"--sid=" + RealElevation().UserSid();
  RealProcess().Exit(administrator && OwnWords().front() == sid ? kWideCode : 1);
  return 0;
});

const SecondProcessRole kReturner("elevated returner", [] { return 227; });

const SecondProcessRole kSignaller("elevated signaller", [] {
  const std::vector<std::wstring> words = OwnWords();
  const Result<KernelHandle> go = RealKernelObjects().CreateNamedEvent(words.at(1));
  const Result<KernelHandle> up = RealKernelObjects().OpenNamedEvent(words.at(0));
  static_cast<void>(RealKernelObjects().SetEvent(up.value()));
  RealKernelObjects().Wait(go.value(), kWaitForever);
  RealProcess().Exit(kWideCode);
  return 0;
});

class ElevationTest : public testing::Test {
 protected:
  KernelHandle Launch(const char* role, const std::wstring& parameters) {
    const ScopedEnvironment playing("KORVANE_TEST_ROLE", role);
    const std::wstring executable = RealProcess().Executable().value().path;
    Result<KernelHandle> launched = elevation_.LaunchElevated(executable, parameters);
    EXPECT_TRUE(launched) << launched.error();
    return launched ? launched.take() : KernelHandle();
  }

  std::uint32_t AwaitCode(const KernelHandle& process) {
    EXPECT_EQ(objects_.Wait(process, kPatientWaitMs).result, kWaitSignalled);
    const Result<std::uint32_t> code = elevation_.ExitCode(process);
    EXPECT_TRUE(code) << code.error();
    return code ? code.value() : 0;
  }

  Elevation& elevation_ = RealElevation();
  KernelObjects& objects_ = RealKernelObjects();

 private:
  test::TemporaryFolder runtime_;
  ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
};

TEST_F(ElevationTest, ChildGetsItsWordsAndItsWholeExitCodeArrives) {
  for (std::size_t row = 0; row < WordRows().size(); ++row) {
    const ScopedEnvironment asked("KORVANE_TEST_ROW", std::to_string(row));
    const KernelHandle child = Launch("elevated word reader", WordRows()[row].parameters);
    EXPECT_EQ(AwaitCode(child), kWideCode) << testing::PrintToString(WordRows()[row].why);
  }
}

TEST_F(ElevationTest, ChildIsAnAdministratorOfTheSameUser) {
  const std::wstring sid = elevation_.UserSid();
  EXPECT_TRUE(sid.starts_with(L"S-1-5-21-"));
  EXPECT_EQ(AwaitCode(Launch("elevated rights teller", L"--sid=" + sid)), kWideCode);
}

TEST_F(ElevationTest, CodeOfAnOrdinaryReturnCanBeReadAgainAndAgain) {
  const KernelHandle child = Launch("elevated returner", L"");
  EXPECT_EQ(AwaitCode(child), 227U);
  EXPECT_EQ(AwaitCode(child), 227U);
}

TEST_F(ElevationTest, EventAndEndOfTheChildAreWaitedForTogether) {
  const std::wstring name = L"Local\\Korvane.Test." + std::to_wstring(RealProcess().Id());
  const Result<KernelHandle> up = objects_.CreateNamedEvent(name + L".up");
  ASSERT_TRUE(up);
  const KernelHandle child = Launch("elevated signaller", name + L".up " + name + L".go");
  const std::vector<const KernelHandle*> both = {&up.value(), &child};
  EXPECT_EQ(objects_.WaitAny(both, kPatientWaitMs).result, 0U);
  EXPECT_EQ(elevation_.ExitCode(child).value(), kStillActive);
  EXPECT_EQ(objects_.WaitAny(both, 0).result, kWaitTimeout);

  const Result<KernelHandle> go = objects_.OpenNamedEvent(name + L".go");
  ASSERT_TRUE(go);
  EXPECT_TRUE(objects_.SetEvent(go.value()));
  EXPECT_EQ(objects_.WaitAny(both, kPatientWaitMs).result, 1U);
  EXPECT_EQ(elevation_.ExitCode(child).value(), kWideCode);
  EXPECT_EQ(objects_.WaitAny(both, 0).result, 1U) << "an ended process stays so";
}

TEST_F(ElevationTest, ChildGoesOnWhenItsHandleIsClosed) {
  const std::wstring name = L"Local\\Korvane.Test." + std::to_wstring(RealProcess().Id());
  const Result<KernelHandle> up = objects_.CreateNamedEvent(name + L".up");
  KernelHandle child = Launch("elevated signaller", name + L".up " + name + L".go");
  ASSERT_EQ(objects_.Wait(up.value(), kPatientWaitMs).result, kWaitSignalled);
  EXPECT_TRUE(objects_.Close(child));
  const Result<KernelHandle> go = objects_.OpenNamedEvent(name + L".go");
  ASSERT_TRUE(go) << "alive";
  EXPECT_TRUE(objects_.SetEvent(go.value()));
}

TEST_F(ElevationTest, OtherKindsOfHandlesHaveNoExitCode) {
  const KernelHandle none;
  EXPECT_FALSE(elevation_.ExitCode(none));
}

}  // namespace
}  // namespace korvane::platform
