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

// What a launch passes on: blanks, an empty word, quotes, other scripts, and no character at all.
constexpr wchar_t kParameters[] =
    L" --takeover-token=0A \"a b\"\tc\"d e\" \"\" \\\"x \"\x41F \x8DEF\" \xDCFF"
    L"a ";
const std::vector<std::wstring> kWords = {L"--takeover-token=0A",
                                          L"a b",
                                          L"cd e",
                                          L"",
                                          L"\"x",
                                          L"\x41F \x8DEF",
                                          L"\xDCFF"
                                          L"a"};

std::vector<std::wstring> OwnWords() {
  std::vector<std::wstring> words = RealProcess().ArgumentVector().value();
  words.erase(words.begin());
  return words;
}

const SecondProcessRole kWordReader("elevated word reader", [] {
  RealProcess().Exit(OwnWords() == kWords ? kWideCode : 1);
  return 0;
});

// Ends by an ordinary return.
const SecondProcessRole kRightsTeller("elevated rights teller", [] {
  const bool administrator = RealElevation().IsAdministrator();
  const std::wstring sid = L"--sid=" + RealElevation().UserSid();
  return administrator && OwnWords().front() == sid ? 227 : 1;
});

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
  EXPECT_EQ(AwaitCode(Launch("elevated word reader", kParameters)), kWideCode);
}

TEST_F(ElevationTest, ChildIsAnAdministratorOfTheSameUser) {
  const std::wstring sid = elevation_.UserSid();
  EXPECT_TRUE(sid.starts_with(L"S-1-5-21-"));
  const KernelHandle child = Launch("elevated rights teller", L"--sid=" + sid);
  EXPECT_EQ(AwaitCode(child), 227U);
  EXPECT_EQ(AwaitCode(child), 227U) << "it can be read again";
  EXPECT_FALSE(elevation_.ExitCode(KernelHandle()));
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

}  // namespace
}  // namespace korvane::platform
