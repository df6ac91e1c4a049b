#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
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

using ::korvane::test::HearLine;
using ::korvane::test::ReceivedMessage;
using ::korvane::test::SayLine;
using ::korvane::test::SecondProcess;
using ::korvane::test::SecondProcessRole;
using ::korvane::test::TestWindow;
using ::korvane::test::UniqueName;

constexpr std::uint32_t kRequest = kWmApp + 43;
constexpr const wchar_t* kProperty = L"Korvane.Test";
constexpr std::uintptr_t kPropertyValue = 0x1234567890;

std::string Told(const ReceivedMessage& message) {
  std::ostringstream line;
  line << std::hex << message.number << " " << message.parameter << " " << message.data;
  return line.str();
}

std::wstring HeardName() {
  const std::string line = HearLine().value_or("");
  return std::wstring(line.begin(), line.end());
}

// Makes a window of the class and title that it hears, says "ready" and then every posted or
// activating message that comes, until the window is closed.
const SecondProcessRole kWindowOwner("window_owner", [] {
  const std::wstring window_class = HeardName();
  const std::wstring title = HeardName();
  TestWindow window(
      window_class, [](const ReceivedMessage& message) -> std::optional<MessageResult> {
        if (message.number >= kWmApp || (message.number == kWmActivate && message.parameter != 0)) {
          SayLine(Told(
              {message.number, message.parameter, message.number < kWmApp ? 0 : message.data}));
        }
        if (message.number == kWmDestroy) {
          os().windows->PostQuit(0);
        }
        return std::nullopt;
      });
  if (!window.Create(title).ok()) {
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

// Finds the window whose texts it hears and posts its process id to it.
const SecondProcessRole kPoster("poster", [] {
  const std::wstring window_class = HeardName();
  const WindowHandle window = os().windows->Find(window_class, HeardName());
  return os().windows->Post(window, kRequest, os().process->Id(), 0).ok() ? 0 : 1;
});

class WindowAcrossProcessesTest : public testing::Test {
 protected:
  WindowSystem& windows() { return *os().windows; }

  // Starts the owner and waits until its window is there.
  void Own(SecondProcess& owner) {
    owner.Say(std::string(class_.begin(), class_.end()));
    owner.Say("Korvane");
    ASSERT_EQ(owner.Hear(), "ready");
  }

  const std::wstring class_ = UniqueName(L"KORVANE_TEST_WINDOW");

 private:
  test::TemporaryFolder runtime_;
  test::ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
};

TEST_F(WindowAcrossProcessesTest, WindowIsFoundByClassAndTitleTogether) {
  SecondProcess owner("window_owner");
  EXPECT_EQ(windows().Find(class_, L"Korvane"), nullptr) << "before there is one";
  Own(owner);
  const WindowHandle window = windows().Find(class_, L"Korvane");
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(windows().OwnerProcess(window), owner.id());
  EXPECT_EQ(windows().Find(class_, L"Korvane "), nullptr);
  EXPECT_EQ(windows().Find(class_ + L"_", L"Korvane"), nullptr);
  EXPECT_EQ(windows().Find(class_, std::wstring(5000, L'K')), nullptr);
}

// All that a second start does with the window of the first.
TEST_F(WindowAcrossProcessesTest, WindowIsReadPostedToActivatedAndClosedFromOutside) {
  SecondProcess owner("window_owner");
  Own(owner);
  const WindowHandle window = windows().Find(class_, L"Korvane");
  EXPECT_EQ(windows().WindowProperty(window, kProperty), kPropertyValue);
  EXPECT_EQ(windows().WindowProperty(window, L"Korvane.Absent"), 0U);
  EXPECT_FALSE(windows().Destroy(window).ok());
  ASSERT_TRUE(windows().Post(window, kRequest, 0xFEDCBA9876543210, -2).ok());
  EXPECT_EQ(owner.Hear(), Told({kRequest, 0xFEDCBA9876543210, -2}));
  windows().Show(window, kShowRestore);
  EXPECT_TRUE(windows().SetForeground(window));
  const std::string activated = owner.Hear().value_or("");
  EXPECT_EQ(activated.substr(0, 2), "6 ") << activated;
  ASSERT_TRUE(windows().Post(window, kWmClose, 0, 0).ok());
  EXPECT_EQ(owner.Finish(), 0);
  EXPECT_EQ(windows().Find(class_, L"Korvane"), nullptr);
}

TEST_F(WindowAcrossProcessesTest, OurWindowIsPostedToByAnotherProcess) {
  TestWindow window(class_);
  ASSERT_TRUE(window.Create(L"Korvane").ok());
  SecondProcess poster("poster");
  poster.Say(std::string(class_.begin(), class_.end()));
  poster.Say("Korvane");
  ASSERT_TRUE(test::DispatchThrough(kRequest));
  EXPECT_EQ(window.Received(kRequest).front().parameter, poster.id());
  EXPECT_EQ(poster.Finish(), 0);
}

TEST_F(WindowAcrossProcessesTest, WindowOfAKilledProcessIsGone) {
  SecondProcess owner("window_owner");
  Own(owner);
  const WindowHandle window = windows().Find(class_, L"Korvane");
  owner.Kill();
  EXPECT_EQ(windows().OwnerProcess(window), 0U);
  EXPECT_EQ(windows().WindowProperty(window, kProperty), 0U);
  EXPECT_FALSE(windows().Post(window, kRequest, 0, 0).ok());
  EXPECT_FALSE(windows().SetForeground(window));
  EXPECT_EQ(windows().Find(class_, L"Korvane"), nullptr);
  SecondProcess successor("window_owner");
  Own(successor);
  EXPECT_EQ(windows().OwnerProcess(windows().Find(class_, L"Korvane")), successor.id());
}

}  // namespace
}  // namespace korvane::platform
