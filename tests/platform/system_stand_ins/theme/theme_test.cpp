#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "platform/appearance.h"
#include "platform/os.h"
#include "support/windows/system_calls.h"

namespace korvane::platform {
namespace {

TEST(ThemeStandInTest, EntriesAreCalledByTheirOrdinals) {
  const test::SystemCalls calls;
  Appearance& appearance = *os().appearance;
  EXPECT_EQ(appearance.FindThemeFunction(kThemeAllowDarkMode), nullptr) << "not loaded yet";
  ASSERT_TRUE(appearance.LoadThemeLibrary());
  const ThemeFunction allow = appearance.FindThemeFunction(kThemeAllowDarkMode);
  const ThemeFunction refresh = appearance.FindThemeFunction(kThemeRefreshColorPolicy);
  const ThemeFunction flush = appearance.FindThemeFunction(kThemeFlushMenus);
  ASSERT_TRUE(allow != nullptr && refresh != nullptr && flush != nullptr);
  EXPECT_EQ(appearance.FindThemeFunction(137), nullptr);
  appearance.CallTheme(allow, 1);
  appearance.CallTheme(refresh);
  appearance.CallTheme(flush);
  const auto made = calls.All("uxtheme");
  ASSERT_EQ(made.size(), 3U);
  EXPECT_EQ(made[0]["call"], "135");
  EXPECT_EQ(made[0]["argument"], 1);
  EXPECT_EQ(made[1]["call"], "104");
  EXPECT_EQ(made[2]["call"], "136");
}

}  // namespace
}  // namespace korvane::platform
