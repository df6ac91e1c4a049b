#include "platform/elevation.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "platform/real_os.h"
#include "support/scoped_environment.h"

namespace korvane::platform {
namespace {

using test::ScopedEnvironment;

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
  const wchar_t* program = L"/no/such/program";
  EXPECT_EQ(RealElevation().LaunchElevated(program, L"").error(), ErrorCode{ENOENT});
  const ScopedEnvironment consent("KORVANE_POSIX_CONSENT", "cancel");
  EXPECT_EQ(RealElevation().LaunchElevated(program, L"").error(), kErrorCancelled);
}

}  // namespace
}  // namespace korvane::platform
