#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

#include "platform/os.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

using ::korvane::test::ReceivedMessage;
using ::korvane::test::SayLine;

constexpr std::uint32_t kRequest = kWmApp + 43;
constexpr const wchar_t* kProperty = L"Korvane.Test";
constexpr std::uintptr_t kPropertyValue = 0x1234567890;

std::string Told(const ReceivedMessage& message) {
  std::ostringstream line;
  line << std::hex << message.number << " " << message.parameter << " " << message.data;
  return line.str();
}

std::optional<MessageResult> TellOf(const ReceivedMessage& message) {
  if (message.number >= kWmApp) {
    SayLine(Told(message));
  } else if (message.number == kWmActivate && message.parameter != 0) {
    SayLine("activated");
  } else if (message.number == kWmDestroy) {
    os().windows->PostQuit(0);
  }
  return std::nullopt;
}

// Makes a window of the class that it hears, says "ready" and then every posted or activating
// message that comes, until the window is closed.
const test::SecondProcessRole kWindowOwner("window_owner", [] {
  const std::string window_class = test::HearLine().value_or("");
  test::TestWindow window(std::wstring(window_class.begin(), window_class.end()), TellOf);
  if (!window.Create(L"Korvane").ok()) {
    return 1;
  }
  static_cast<void>(os().windows->SetWindowProperty(window.handle(), kProperty, kPropertyValue));
  static_cast<void>(os().windows->AllowMessage(window.handle(), kRequest));
  SayLine("ready");
  Message message;
  while (os().windows->Next(message) != 0) {
    os().windows->Dispatch(message);
  }
  return 0;
});

// All that a second start does with the window of the first.
TEST(WindowAcrossProcesses, IsFoundReadPostedToActivatedAndClosedFromOutside) {
  const test::TemporaryFolder runtime;
  const test::ScopedEnvironment environment("XDG_RUNTIME_DIR", runtime.path().string());
  const std::wstring name = test::UniqueName(L"KORVANE_TEST_WINDOW");
  WindowSystem& windows = *os().windows;
  test::SecondProcess owner("window_owner");
  owner.Say(std::string(name.begin(), name.end()));
  ASSERT_EQ(owner.Hear(), "ready");

  EXPECT_EQ(windows.Find(name, L"Korvane "), nullptr);
  EXPECT_EQ(windows.Find(name + L"_", L"Korvane"), nullptr);
  const WindowHandle window = windows.Find(name, L"Korvane");
  EXPECT_EQ(windows.OwnerProcess(window), owner.id());
  EXPECT_EQ(windows.WindowProperty(window, kProperty), kPropertyValue);
  EXPECT_EQ(windows.WindowProperty(window, L"Korvane.Absent"), 0U);
  EXPECT_FALSE(windows.Destroy(window).ok());
  ASSERT_TRUE(windows.Post(window, kRequest, 0xFEDCBA9876543210, -2).ok());
  EXPECT_EQ(owner.Hear(), Told({kRequest, 0xFEDCBA9876543210, -2}));
  windows.Show(window, kShowRestore);
  EXPECT_TRUE(windows.SetForeground(window));
  EXPECT_EQ(owner.Hear(), "activated");
  ASSERT_TRUE(windows.Post(window, kWmClose, 0, 0).ok());
  EXPECT_EQ(owner.Finish(), 0);
  EXPECT_EQ(windows.Find(name, L"Korvane"), nullptr);
}

}  // namespace
}  // namespace korvane::platform
