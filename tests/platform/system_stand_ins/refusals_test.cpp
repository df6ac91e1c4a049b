#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "platform/appearance.h"
#include "platform/elevation.h"
#include "platform/os.h"
#include "platform/process.h"
#include "platform/window_system.h"
#include "support/test_window.h"
#include "support/windows/system_calls.h"

namespace korvane::platform {
namespace {

class RefusalsTest : public testing::Test {
 protected:
  test::SystemCalls calls_;
};

TEST_F(RefusalsTest, SessionNotificationIsAskedForThisSessionAndMayBeRefused) {
  test::TestWindow window(test::UniqueName(L"KorvaneSession"));
  const WindowHandle handle = window.Create(L"session").value();
  EXPECT_TRUE(os().windows->RegisterSessionNotification(handle).ok());
  EXPECT_TRUE(os().windows->UnregisterSessionNotification(handle).ok());
  calls_.Tell("wtsapi32.fail_register=5\nwtsapi32.fail_unregister=0x578\n");
  EXPECT_EQ(os().windows->RegisterSessionNotification(handle).error(), 5U);
  EXPECT_EQ(os().windows->UnregisterSessionNotification(handle).error(), 1400U);
  EXPECT_EQ(calls_.All("wtsapi32").at(0)["flags"], 0);
  EXPECT_EQ(calls_.All("wtsapi32").size(), 4U);
}

TEST_F(RefusalsTest, DarkTitleBarIsAFourByteBooleanAndItsResultIsHandedOn) {
  test::TestWindow window(test::UniqueName(L"KorvaneTitleBar"));
  const WindowHandle handle = window.Create(L"title bar").value();
  EXPECT_EQ(os().appearance->SetDarkTitleBar(handle, true), 0);
  calls_.Tell("dwmapi.result=0x80070057");
  EXPECT_EQ(os().appearance->SetDarkTitleBar(handle, false), -2147024809);
  const auto made = calls_.All("dwmapi");
  ASSERT_EQ(made.size(), 2U);
  for (const int dark : {1, 0}) {
    const nlohmann::json& call = made[dark == 1 ? 0 : 1];
    EXPECT_EQ(call["attribute"], 20);
    EXPECT_EQ(call["size"], 4);
    EXPECT_EQ(call["value"], dark);
  }
}

TEST_F(RefusalsTest, DeclinedConsentIsToldFromALaunchWithoutAProcess) {
  calls_.Tell("shell32.fail_execute=1223\n");
  const auto declined =
      os().elevation->LaunchElevated(L"C:\\Program Files\\a b.exe", L"--takeover-token=x \"y z\"");
  EXPECT_FALSE(declined.ok());
  EXPECT_EQ(declined.error(), kErrorCancelled);
  calls_.Tell("shell32.no_process=1\n");
  EXPECT_FALSE(os().elevation->LaunchElevated(L"C:\\a.exe", L"").ok());

  const auto made = calls_.All("shell32");
  ASSERT_EQ(made.size(), 2U);
  EXPECT_EQ(made[0]["mask"], 0x140);
  EXPECT_EQ(made[0]["window"], false);
  EXPECT_EQ(made[0]["verb"], "runas");
  EXPECT_EQ(made[0]["file"], "C:\\Program Files\\a b.exe");
  EXPECT_EQ(made[0]["parameters"], "--takeover-token=x \"y z\"");
  EXPECT_EQ(made[0]["directory"], nullptr);
  EXPECT_EQ(made[0]["show"], 5);
}

}  // namespace
}  // namespace korvane::platform
