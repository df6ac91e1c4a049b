#include "platform/appearance.h"

#include <gtest/gtest.h>

#include "platform/os.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

Appearance& Looks() { return *os().appearance; }

TEST(AppearanceTest, DensityHasItsThreeSteps) {
  const UserModule module = Looks().FindUserModule();
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(Looks().FindDensityFunction(module, "GetDpiForNothing"), nullptr);

  const DensityFunction of_system = Looks().FindDensityFunction(module, "GetDpiForSystem");
  ASSERT_NE(of_system, nullptr);
  EXPECT_GE(Looks().SystemDensity(of_system), 96U);

  test::TestWindow window(test::UniqueName(L"KorvaneDensity"));
  ASSERT_TRUE(window.Create(L"density").ok());
  const DensityFunction of_window = Looks().FindDensityFunction(module, "GetDpiForWindow");
  ASSERT_NE(of_window, nullptr);
  EXPECT_GE(Looks().WindowDensity(of_window, window.handle()), 96U);
  EXPECT_EQ(Looks().WindowDensity(of_window, nullptr), 0U);
}

TEST(AppearanceTest, TitleBarAndFrameTakeAWindow) {
  test::TestWindow window(test::UniqueName(L"KorvaneTitleBar"));
  ASSERT_TRUE(window.Create(L"title bar").ok());
  EXPECT_GE(Looks().SetDarkTitleBar(window.handle(), true), 0);
  Looks().EnableNonClientDpiScaling(window.handle());
  EXPECT_NE(os().windows->OwnerProcess(window.handle()), 0U) << "the window is none the worse";
}

}  // namespace
}  // namespace korvane::platform
