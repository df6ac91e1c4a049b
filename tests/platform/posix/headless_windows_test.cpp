#include "platform/posix/headless_windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/os.h"
#include "platform/posix/message_queue.h"
#include "support/recording_error_stream.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

using ::korvane::test::ReceivedMessage;
using ::korvane::test::TestWindow;
using ::testing::ElementsAre;
using ::testing::Pair;

constexpr std::uint32_t kTask = kWmApp + 5;

using Messages = std::vector<ReceivedMessage>;
using Changes = std::vector<std::pair<KorvaneWindowChange, void*>>;

std::intptr_t WriteDown(void* messages, void* /*window*/, std::uint32_t number,
                        std::uintptr_t parameter, std::intptr_t data) {
  static_cast<Messages*>(messages)->push_back({number, parameter, data});
  return 0;
}

class HeadlessWindowsTest : public testing::Test {
 protected:
  const KorvaneHeadlessWindowsV1& door() { return *korvane_headless_windows_v1(); }
  WindowSystem& windows() { return *os().windows; }

 private:
  test::TemporaryFolder runtime_;
  test::ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
};

TEST_F(HeadlessWindowsTest, ChildFollowsItsParentsLife) {
  TestWindow parent(L"Parent");
  ASSERT_TRUE(parent.Create(L"parent").ok());
  EXPECT_EQ(door().thread_top_level(), parent.handle());

  Messages messages;
  void* child = door().create_child(&WriteDown, &messages);
  ASSERT_NE(child, nullptr);
  windows().SetParent(child, parent.handle());
  windows().Move(child, windows().ClientRectangle(parent.handle()));
  std::int32_t width = 0;
  std::int32_t height = 0;
  ASSERT_TRUE(door().client_size(child, &width, &height));
  EXPECT_EQ(width, 300);
  EXPECT_EQ(height, 200);
  EXPECT_EQ(windows().Find(L"", L""), nullptr) << "a child is nobody's to find";

  ASSERT_TRUE(windows().Destroy(parent.handle()).ok());
  EXPECT_THAT(messages, ElementsAre(ReceivedMessage{kWmSize, 0, (200 << 16) | 300},
                                    ReceivedMessage{kWmDestroy, 0, 0}));
  EXPECT_FALSE(door().destroy(child));
  EXPECT_FALSE(door().post(child, kTask, 1, 2));
  EXPECT_EQ(door().thread_top_level(), nullptr);
}

TEST_F(HeadlessWindowsTest, ObserverIsToldWhatBecomesOfTheTopLevelWindow) {
  Changes changes;
  door().set_observer(
      [](void* told, KorvaneWindowChange change, void* window) {
        static_cast<Changes*>(told)->emplace_back(change, window);
      },
      &changes);
  TestWindow window(L"Observed");
  const WindowHandle handle = window.Create(L"observed").value();
  Messages messages;
  EXPECT_NE(door().create_child(&WriteDown, &messages), nullptr) << "a child is no news";
  windows().Show(handle, kShowNormal);
  windows().Show(handle, kShowRestore);
  windows().SetForeground(handle);
  EXPECT_TRUE(windows().UnregisterSessionNotification(handle).ok());
  ASSERT_TRUE(windows().Destroy(handle).ok());
  EXPECT_EQ(windows().RegisterSessionNotification(handle).error(), 1400U);
  EXPECT_EQ(windows().UnregisterSessionNotification(handle).error(), 1400U);
  EXPECT_THAT(
      changes,
      ElementsAre(Pair(kKorvaneWindowCreated, handle), Pair(kKorvaneWindowShown, handle),
                  Pair(kKorvaneWindowRestored, handle), Pair(kKorvaneWindowForeground, handle),
                  Pair(kKorvaneWindowDestroyed, handle)));
  door().set_observer(nullptr, nullptr);
}

TEST_F(HeadlessWindowsTest, ActivationMovesBetweenTheWindowsOfAThread) {
  TestWindow first(L"First");
  TestWindow second(L"Second");
  ASSERT_TRUE(first.Create(L"first").ok());
  ASSERT_TRUE(second.Create(L"second").ok());
  EXPECT_TRUE(windows().SetForeground(first.handle()));
  EXPECT_TRUE(first.Received(kWmActivate).empty()) << "hidden";
  windows().Show(first.handle(), kShowNormal);
  windows().Show(second.handle(), kShowNormal);
  EXPECT_TRUE(windows().SetForeground(first.handle()));
  EXPECT_THAT(first.Received(kWmActivate),
              ElementsAre(ReceivedMessage{kWmActivate, 1, 0}, ReceivedMessage{kWmActivate, 0, 0},
                          ReceivedMessage{kWmActivate, 1, 0}));
  EXPECT_THAT(second.Received(kWmActivate),
              ElementsAre(ReceivedMessage{kWmActivate, 1, 0}, ReceivedMessage{kWmActivate, 0, 0}));
}

TEST_F(HeadlessWindowsTest, WindowOfAnotherThreadIsShownByThatThread) {
  TestWindow window(L"Elsewhere");
  ASSERT_TRUE(window.Create(L"elsewhere").ok());
  std::thread([&, handle = window.handle()] {
    windows().Show(handle, kShowNormal);
    windows().Place(handle, 0, 0, 640, 480);
    ASSERT_TRUE(windows().Post(handle, kTask, 0, 0).ok());
  }).join();
  EXPECT_TRUE(window.Received(kWmSize).empty()) << "before its thread waits";
  ASSERT_TRUE(test::DispatchThrough(kTask));
  EXPECT_THAT(window.Received(kWmSize),
              ElementsAre(ReceivedMessage{kWmSize, 0, (200 << 16) | 300},
                          ReceivedMessage{kWmSize, 0, (480 << 16) | 640}));
}

// The service comes and goes with the first and the last of them.
TEST_F(HeadlessWindowsTest, WindowsOfManyThreadsComeAndGoAtOnce) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, name = L"Crowd" + std::to_wstring(thread)] {
      for (int i = 0; i < 50; ++i) {
        TestWindow window(name);
        ASSERT_TRUE(window.Create(L"crowd").ok());
        EXPECT_EQ(windows().Find(name, L"crowd"), window.handle());
        EXPECT_TRUE(windows().Post(window.handle(), kTask, 0, 0).ok());
        EXPECT_TRUE(test::DispatchThrough(kTask));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(windows().Find(L"Crowd0", L"crowd"), nullptr);
}

TEST_F(HeadlessWindowsTest, FullQueueRefusesAndLosesNothing) {
  TestWindow window(L"Flooded");
  ASSERT_TRUE(window.Create(L"flooded").ok());
  for (std::size_t i = 0; i < kMessageQueueLimit; ++i) {
    ASSERT_TRUE(windows().Post(window.handle(), kTask, i, 0).ok());
  }
  EXPECT_EQ(windows().Post(window.handle(), kTask, 0, 0).error(), kErrorQueueFull);
  for (std::size_t i = 0; i < kMessageQueueLimit; ++i) {
    ASSERT_TRUE(test::DispatchThrough(kTask));
  }
  EXPECT_EQ(window.Received(kTask).back().parameter, kMessageQueueLimit - 1);
  EXPECT_TRUE(windows().Post(window.handle(), kTask, 0, 0).ok());
}

TEST_F(HeadlessWindowsTest, ParentsMakeNoRing) {
  Messages messages;
  void* outer = door().create_child(&WriteDown, &messages);
  void* inner = door().create_child(&WriteDown, &messages);
  windows().SetParent(inner, outer);
  windows().SetParent(outer, inner);
  EXPECT_TRUE(door().destroy(outer));
  EXPECT_EQ(messages.size(), 2U) << "each was destroyed once";
}

TEST_F(HeadlessWindowsTest, MessageBoxIsALineOnTheErrorStream) {
  test::RecordingErrorStream stream;
  Os with_stream = os();
  with_stream.error_stream = &stream;
  const ScopedOs in_force(with_stream);
  EXPECT_EQ(windows().ShowMessageBox(L"text \u2014", L"caption", 0x10030), 1);
  EXPECT_THAT(stream.lines(), ElementsAre("caption: text \xE2\x80\x94"));
}

}  // namespace
}  // namespace korvane::platform
