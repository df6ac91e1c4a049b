#include "platform/elevation.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using test::ScopedEnvironment;
using test::SecondProcessRole;

constexpr std::uint32_t kPatientWaitMs = 60000;

const SecondProcessRole kDier("elevated dier", [] {
  raise(SIGKILL);
  return 0;
});

// Runs a program of the same platform layer, whose code must not be taken for its own.
const SecondProcessRole kParent("elevated parent", [] {
  const ScopedEnvironment role("KORVANE_TEST_ROLE", "elevated grandchild");
  const std::wstring executable = RealProcess().Executable().value().path;
  const auto code = RealScheduledCommand().Run(L"\"" + executable + L"\"");
  RealProcess().Exit(code && code.value() == 0x44 ? 0x11223344 : 1);
  return 0;
});

const SecondProcessRole kGrandchild("elevated grandchild", [] {
  RealProcess().Exit(0xAABBCC44);
  return 0;
});

const SecondProcessRole kShouter("elevated shouter", [] {
  RealErrorStream().WriteLine("heard");
  return 0;
});

Result<KernelHandle> Launch(const char* role) {
  const ScopedEnvironment playing("KORVANE_TEST_ROLE", role);
  return RealElevation().LaunchElevated(RealProcess().Executable().value().path, L"");
}

std::uint32_t AwaitCode(const KernelHandle& child) {
  EXPECT_EQ(RealKernelObjects().Wait(child, kPatientWaitMs).result, kWaitSignalled);
  return RealElevation().ExitCode(child).value();
}

// Its error stream is the file that it is told; then it is silenced, as before an engine is loaded.
const SecondProcessRole kSilencedLauncher("silenced launcher", [] {
  const int file =
      open(test::HearLine().value_or("").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  dup2(file, STDERR_FILENO);
  const Status silenced = RealErrorStream().SilenceStandardError();
  const Result<KernelHandle> child = Launch("elevated shouter");
  return silenced && child && AwaitCode(child.value()) == 0 ? 0 : 1;
});

TEST(PosixElevationTest, ChildOfASilencedProcessWritesWhereThatOneDoes) {
  const test::TemporaryFolder folder;
  test::SecondProcess launcher("silenced launcher");
  launcher.Say((folder / "errors").string());
  EXPECT_EQ(launcher.Finish(), 0);
  EXPECT_EQ(test::ReadBytes(folder / "errors"), "heard\n");
}

TEST(PosixElevationTest, EnvironmentAloneMakesAnAdministrator) {
  EXPECT_FALSE(RealElevation().IsAdministrator());
  for (const auto& [value, elevated] :
       {std::pair{"1", true}, {"0", false}, {"", false}, {"11", false}}) {
    const ScopedEnvironment set("KORVANE_POSIX_ELEVATED", value);
    EXPECT_EQ(RealElevation().IsAdministrator(), elevated) << value;
  }
  EXPECT_EQ(RealElevation().UserSid(), L"S-1-5-21-0-0-0-" + std::to_wstring(geteuid()));
}

TEST(PosixElevationTest, DeclinedConsentAndAMissingProgramHaveTheirNumbers) {
  const ScopedEnvironment consent("KORVANE_POSIX_CONSENT", "cancel");
  EXPECT_EQ(Launch("elevated dier").error(), kErrorCancelled);
  const ScopedEnvironment given("KORVANE_POSIX_CONSENT", std::nullopt);
  EXPECT_EQ(RealElevation().LaunchElevated(L"/no/such/program", L"").error(), ErrorCode{ENOENT});
}

TEST(PosixElevationTest, KilledChildHasTheCodeOfItsSignal) {
  const Result<KernelHandle> child = Launch("elevated dier");
  ASSERT_TRUE(child) << child.error();
  EXPECT_EQ(AwaitCode(child.value()), 128U + SIGKILL);
}

TEST(PosixElevationTest, CodeOfAGrandchildIsNotTakenForTheChilds) {
  const Result<KernelHandle> child = Launch("elevated parent");
  ASSERT_TRUE(child) << child.error();
  EXPECT_EQ(AwaitCode(child.value()), 0x11223344U);
}

}  // namespace
}  // namespace korvane::platform
