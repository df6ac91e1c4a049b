#include "platform/window_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

using ::korvane::test::DispatchThrough;
using ::korvane::test::ReceivedMessage;
using ::korvane::test::TestWindow;
using ::korvane::test::UniqueName;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kMessageA = kWmApp + 1;
constexpr std::uint32_t kMessageB = kWmApp + 2;

// A number that grows with what this process has open: handles and the user's objects, or
// descriptors and threads.
long OpenThings() {
#ifdef _WIN32
  DWORD handles = 0;
  EXPECT_TRUE(::GetProcessHandleCount(::GetCurrentProcess(), &handles));
  if (handles != 0) {
    return static_cast<long>(handles + ::GetGuiResources(::GetCurrentProcess(), GR_USEROBJECTS));
  }
  // Wine counts none, but gives the lowest free number to the next one of each.
  const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ::CloseHandle(event);
  const HWND window =
      ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  EXPECT_TRUE(::DestroyWindow(window));
  return static_cast<long>(reinterpret_cast<std::uintptr_t>(event) +
                           LOWORD(reinterpret_cast<std::uintptr_t>(window)));
#else
  const auto entries = [](const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
  };
  return entries("/proc/self/fd") + entries("/proc/self/task");
#endif
}

// Each case has a runtime folder of its own on Linux, so cases at one time don't meet.
class WindowSystemTest : public testing::Test {
 protected:
  WindowSystem& windows() { return *os().windows; }

 private:
  test::TemporaryFolder runtime_;
  test::ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
};

TEST_F(WindowSystemTest, CreationReachesTheProcedureBeforeItReturns) {
  TestWindow window(UniqueName(L"KorvaneTest"));
  const Result<WindowHandle> created = window.Create(L"title");
  ASSERT_TRUE(created.ok()) << created.error();
  EXPECT_EQ(window.handle(), created.value());
  EXPECT_EQ(window.Received(kWmNcCreate).size(), 1U);
  EXPECT_EQ(windows().UserData(created.value()), &window);
  const Rectangle client = windows().ClientRectangle(created.value());
  EXPECT_EQ(client.right - client.left, 300);
  EXPECT_EQ(client.bottom - client.top, 200);
  EXPECT_EQ(windows().OwnerProcess(created.value()), os().process->Id());
}

TEST_F(WindowSystemTest, RefusalOfItsCreationLeavesNoWindow) {
  const std::wstring name = UniqueName(L"KorvaneTest");
  TestWindow window(name, [](const ReceivedMessage& message) -> std::optional<MessageResult> {
    return message.number == kWmNcCreate ? std::optional<MessageResult>(0) : std::nullopt;
  });
  EXPECT_FALSE(window.Create(L"refused").ok());
  EXPECT_EQ(windows().Find(name, L"refused"), nullptr);
}

TEST_F(WindowSystemTest, AnotherThreadPostsWholeAndInItsOrderAndCanNotDestroy) {
  constexpr std::uintptr_t kPosts = 500;
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title").ok());
  std::thread poster([&, target = window.handle()] {
    for (std::uintptr_t i = 0; i < kPosts; ++i) {
      EXPECT_TRUE(windows().Post(target, kMessageA, (i << 40) | i, 0x7FFF000000000000).ok());
    }
    EXPECT_EQ(windows().Destroy(target).error(), 5U);
  });
  for (std::uintptr_t i = 0; i < kPosts; ++i) {
    ASSERT_TRUE(DispatchThrough(kMessageA));
    EXPECT_EQ(window.Received(kMessageA).back(),
              (ReceivedMessage{kMessageA, (i << 40) | i, 0x7FFF000000000000}));
  }
  poster.join();
}

TEST_F(WindowSystemTest, QuitComesBehindWhatIsQueued) {
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title").ok());
  ASSERT_TRUE(windows().Post(window.handle(), kMessageA, 0, 0).ok());
  windows().PostQuit(7);
  ASSERT_TRUE(windows().Post(window.handle(), kMessageB, 0, 0).ok());
  std::vector<std::uint32_t> numbers;
  Message message;
  while (windows().Next(message) != 0) {
    if (message.number >= kWmApp) {
      numbers.push_back(message.number);
    }
  }
  EXPECT_THAT(numbers, ElementsAre(kMessageA, kMessageB));
  EXPECT_EQ(message.number, kWmQuit);
  EXPECT_EQ(message.parameter, 7U);
}

TEST_F(WindowSystemTest, DefaultProcedureDestroysOnCloseAndPermitsTheSessionsEnd) {
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title").ok());
  const WindowHandle handle = window.handle();
  EXPECT_EQ(windows().DefaultProcedure(handle, kWmQueryEndSession, 0, 0), 1);
  EXPECT_EQ(windows().DefaultProcedure(handle, kMessageA, 0, 0), 0);
  ASSERT_TRUE(windows().Post(handle, kWmClose, 0, 0).ok());
  ASSERT_TRUE(DispatchThrough(kWmClose));
  EXPECT_EQ(window.Received(kWmDestroy).size(), 1U);
  EXPECT_FALSE(windows().Destroy(handle).ok());
}

TEST_F(WindowSystemTest, DestroyedWindowIsReachedByNothing) {
  const std::wstring name = UniqueName(L"KorvaneTest");
  TestWindow dead(name);
  TestWindow alive(name + L".alive");
  ASSERT_TRUE(dead.Create(L"dead").ok());
  ASSERT_TRUE(alive.Create(L"alive").ok());
  const WindowHandle handle = dead.handle();
  ASSERT_TRUE(windows().SetWindowProperty(handle, L"Korvane.Test", 0x123456789A).ok());
  EXPECT_EQ(windows().WindowProperty(handle, L"Korvane.Test"), 0x123456789AU);
  windows().RemoveWindowProperty(handle, L"Korvane.Test");
  EXPECT_EQ(windows().WindowProperty(handle, L"Korvane.Test"), 0U);
  ASSERT_TRUE(windows().Post(handle, kMessageA, 0, 0).ok());
  ASSERT_TRUE(windows().Post(alive.handle(), kMessageB, 0, 0).ok());
  ASSERT_TRUE(windows().Destroy(handle).ok());
  ASSERT_TRUE(DispatchThrough(kMessageB));
  EXPECT_THAT(dead.Received(kMessageA), IsEmpty());
  EXPECT_EQ(windows().Post(handle, kMessageA, 0, 0).error(), 1400U);
  EXPECT_EQ(windows().SetWindowProperty(handle, L"Korvane.Test", 1).error(), 1400U);
  EXPECT_EQ(windows().OwnerProcess(handle), 0U);
  EXPECT_EQ(windows().Find(name, L"dead"), nullptr);
}

TEST_F(WindowSystemTest, ChangeOfSizeIsToldAndAMoveIsNot) {
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title").ok());
  window.Forget();
  windows().Place(window.handle(), 5, 6, 400, 250);
  windows().Move(window.handle(), {50, 60, 50 + 400, 60 + 250});
  windows().Move(window.handle(), {50, 60, 50 + 1280, 60 + 800});
  EXPECT_THAT(window.Received(kWmSize),
              ElementsAre(ReceivedMessage{kWmSize, 0, (250 << 16) | 400},
                          ReceivedMessage{kWmSize, 0, (800 << 16) | 1280}));
  EXPECT_EQ(windows().ClientRectangle(window.handle()).right, 1280);
  EXPECT_EQ(windows().ClientRectangle(window.handle()).bottom, 800);
}

TEST_F(WindowSystemTest, FirstShowTellsTheSizeAndActivates) {
  constexpr std::uint32_t kOverlappedWindow = 0xCF0000;
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title", kOverlappedWindow).ok());
  EXPECT_THAT(window.Received({kWmSize, kWmActivate}), IsEmpty()) << "hidden so far";
  windows().Show(window.handle(), kShowNormal);
  const Rectangle client = windows().ClientRectangle(window.handle());
  EXPECT_THAT(window.Received(kWmSize),
              ElementsAre(ReceivedMessage{kWmSize, 0, (client.bottom << 16) | client.right}));
  ASSERT_EQ(window.Received(kWmActivate).size(), 1U);
  EXPECT_EQ(window.Received(kWmActivate)[0].parameter & 0xFFFF, 1U);
  EXPECT_TRUE(windows().SetForeground(window.handle()));
  EXPECT_EQ(window.Received(kWmActivate).size(), 1U) << "it is the active one already";
}

TEST_F(WindowSystemTest, ChildGoesWithItsParent) {
  const std::wstring name = UniqueName(L"KorvaneTest");
  TestWindow parent(name);
  TestWindow child(name + L".child");
  ASSERT_TRUE(parent.Create(L"parent").ok());
  ASSERT_TRUE(child.Create(L"child").ok());
  windows().SetParent(child.handle(), parent.handle());
  ASSERT_TRUE(windows().Destroy(parent.handle()).ok());
  EXPECT_EQ(child.Received(kWmDestroy).size(), 1U);
  EXPECT_EQ(child.handle(), nullptr);
}

TEST_F(WindowSystemTest, ExceptionOfTheProcedureReachesTheDispatcher) {
  TestWindow window(UniqueName(L"KorvaneTest"),
                    [](const ReceivedMessage& message) -> std::optional<MessageResult> {
                      if (message.number == kMessageA || message.number == kWmDestroy) {
                        throw std::runtime_error("thrown by the procedure");
                      }
                      return std::nullopt;
                    });
  ASSERT_TRUE(window.Create(L"title").ok());
  ASSERT_TRUE(windows().Post(window.handle(), kMessageA, 0, 0).ok());
  EXPECT_THROW(DispatchThrough(kMessageA), std::runtime_error);
  ASSERT_TRUE(windows().Post(window.handle(), kMessageB, 0, 0).ok());
  EXPECT_TRUE(DispatchThrough(kMessageB)) << "the loop goes on";
  const WindowHandle handle = window.handle();
  EXPECT_THROW(static_cast<void>(windows().Destroy(handle)), std::runtime_error);
  EXPECT_EQ(windows().OwnerProcess(handle), 0U);
}

TEST_F(WindowSystemTest, SessionDisplayAndMonitorAreThere) {
  TestWindow window(UniqueName(L"KorvaneTest"));
  ASSERT_TRUE(window.Create(L"title").ok());
  EXPECT_TRUE(windows().AllowMessage(window.handle(), kMessageA).ok());
  EXPECT_TRUE(windows().RegisterSessionNotification(window.handle()).ok());
  EXPECT_TRUE(windows().AllowForeground(os().process->Id()));
  EXPECT_NE(windows().MonitorAt(10, 10), nullptr);
  EXPECT_EQ(windows().DisplayCount(), 1);
  EXPECT_FALSE(windows().RemoteSession());
}

TEST_F(WindowSystemTest, AHundredWindowsLeaveNothingOpen) {
  const std::wstring name = UniqueName(L"KorvaneTest");
  const auto make = [&name] {
    TestWindow window(name);
    ASSERT_TRUE(window.Create(L"title").ok());
  };
  make();  // the first sets up what stays
  const long before = OpenThings();
  for (int round = 0; round < 100; ++round) {
    make();
  }
  EXPECT_LT(OpenThings() - before, 100) << "one for each would be more; the system may open a few";
}

}  // namespace
}  // namespace korvane::platform
