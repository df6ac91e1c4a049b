#include "platform/appearance.h"

#include <gtest/gtest.h>

#include "platform/os.h"

namespace korvane::platform {
namespace {

// The build from which on the title bar follows the theme is compared with this number.
TEST(AppearanceWindowsTest, BuildIsTheSystemsOwnWhateverTheManifestSays) {
  ASSERT_TRUE(os().appearance->SystemBuild().has_value());
  EXPECT_GE(*os().appearance->SystemBuild(), 10240U);
}

}  // namespace
}  // namespace korvane::platform
