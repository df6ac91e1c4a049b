#include "platform/posix/window_service.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/os.h"
#include "platform/posix/runtime_folder.h"
#include "platform/posix/window_meeting_place.h"
#include "platform/posix/window_registry.h"
#include "platform/posix/window_wire.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

using ::korvane::test::HearLine;
using ::korvane::test::SayLine;
using ::korvane::test::ScopedEnvironment;
using ::korvane::test::SecondProcess;
using ::korvane::test::SecondProcessRole;
using ::korvane::test::TestWindow;

constexpr std::uint32_t kAllowed = kWmApp + 43;

std::uint32_t ThisProcess() { return static_cast<std::uint32_t>(getpid()); }

// Lets one message through the filter of its window and serves until its input ends.
const SecondProcessRole kGuarded("guarded_window", [] {
  TestWindow window(L"Guarded");
  if (!window.Create(L"guarded").ok()) {
    return 1;
  }
  static_cast<void>(os().windows->AllowMessage(window.handle(), kAllowed));
  SayLine("ready");
  HearLine();
  return 0;
});

class WindowServiceTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(window_.Create(L"served").ok()); }

  FileDescriptor Connect() {
    Result<WindowMeetingPlace> place = WindowMeetingPlace::Open();
    return place.value().Connect(ThisProcess()).take();
  }

  // What comes back for these bytes: nothing when the service hung up.
  std::optional<WindowReply> Answer(const void* bytes, std::size_t size) {
    const FileDescriptor peer = Connect();
    EXPECT_EQ(send(peer.get(), bytes, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
    WindowReply reply;
    const ssize_t got = recv(peer.get(), &reply, sizeof(reply), 0);
    return got == static_cast<ssize_t>(sizeof(reply)) ? std::optional(reply) : std::nullopt;
  }

  std::optional<WindowReply> Answer(const WindowRequest& request) {
    return Answer(&request, sizeof(request));
  }

  WindowRequest ForOurWindow(WindowOperation operation) {
    return {.operation = operation, .window = std::bit_cast<std::uint64_t>(window_.handle())};
  }

  test::TemporaryFolder runtime_;
  ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
  TestWindow window_{L"Served"};
};

TEST_F(WindowServiceTest, RecordsOfAnotherSizeOrMarkAreRefused) {
  const WindowRequest good = ForOurWindow(WindowOperation::kExists);
  WindowRequest other_build = good;
  ++other_build.mark;
  std::vector<char> longer(sizeof(good) + 1);
  std::memcpy(longer.data(), &good, sizeof(good));
  EXPECT_EQ(Answer(&good, sizeof(good) - 1), std::nullopt) << "cut short";
  EXPECT_EQ(Answer(longer.data(), longer.size()), std::nullopt) << "longer";
  EXPECT_EQ(Answer(other_build), std::nullopt) << "another mark";
  ASSERT_NE(Answer(good), std::nullopt) << "and it still answers";
  EXPECT_EQ(Answer(good)->error, 0U);
}

TEST_F(WindowServiceTest, NonsenseInARecordIsAnError) {
  WindowRequest unknown = ForOurWindow(WindowOperation::kExists);
  unknown.operation = static_cast<WindowOperation>(77);
  WindowRequest too_long = ForOurWindow(WindowOperation::kFind);
  too_long.name.length = 0xFFFFFFFF;
  WindowRequest beyond = ForOurWindow(WindowOperation::kProperty);
  beyond.name.length = kWireTextLimit + 1;
  WindowRequest stranger = ForOurWindow(WindowOperation::kPost);
  stranger.window ^= 1;
  EXPECT_EQ(Answer(unknown)->error, kErrorInvalidParameter);
  EXPECT_EQ(Answer(too_long)->error, kErrorInvalidParameter);
  EXPECT_EQ(Answer(beyond)->error, kErrorInvalidParameter);
  EXPECT_EQ(Answer(stranger)->error, kErrorInvalidWindow);
}

TEST_F(WindowServiceTest, SilentPeersKeepNobodyOut) {
  std::vector<FileDescriptor> silent;
  for (int i = 0; i < 200; ++i) {
    silent.push_back(Connect());
  }
  EXPECT_EQ(Answer(ForOurWindow(WindowOperation::kExists))->error, 0U);
}

TEST_F(WindowServiceTest, EntryIsThereAsLongAsATopLevelWindow) {
  const std::filesystem::path entry =
      RuntimeFolder().value() / "windows" / std::to_string(ThisProcess());
  EXPECT_TRUE(std::filesystem::exists(entry));
  ASSERT_TRUE(os().windows->Destroy(window_.handle()).ok());
  EXPECT_FALSE(std::filesystem::exists(entry));
}

TEST_F(WindowServiceTest, EntryOfADeadProcessIsCleared) {
  SecondProcess owner("guarded_window");
  ASSERT_EQ(owner.Hear(), "ready");
  const std::filesystem::path entry =
      RuntimeFolder().value() / "windows" / std::to_string(owner.id());
  EXPECT_TRUE(std::filesystem::exists(entry));
  owner.Kill();
  EXPECT_TRUE(std::filesystem::exists(entry)) << "a killed process removes nothing";
  EXPECT_EQ(os().windows->Find(L"Guarded", L"guarded"), nullptr);
  EXPECT_FALSE(std::filesystem::exists(entry));
}

TEST_F(WindowServiceTest, ThingsThatAreNoEntriesDoNoHarm) {
  const std::filesystem::path folder = RuntimeFolder().value() / "windows";
  std::ofstream(folder / "1") << "a file where a socket should be";
  std::ofstream(folder / "notes.txt") << "no process";
  std::ofstream(folder / "99999999999999999999") << "no process id";
  EXPECT_EQ(os().windows->Find(L"Guarded", L"guarded"), nullptr);
  EXPECT_TRUE(std::filesystem::exists(folder / "notes.txt"));
}

TEST_F(WindowServiceTest, ElevatedWindowTakesFromOthersOnlyWhatItLetThrough) {
  std::optional<SecondProcess> owner;
  {
    const ScopedEnvironment elevated("KORVANE_POSIX_ELEVATED", "1");
    owner.emplace("guarded_window");
  }
  ASSERT_EQ(owner->Hear(), "ready");
  const WindowHandle window = os().windows->Find(L"Guarded", L"guarded");
  EXPECT_EQ(os().windows->Post(window, kAllowed + 1, 0, 0).error(), kErrorAccessDenied);
  EXPECT_TRUE(os().windows->Post(window, kAllowed, 0, 0).ok());
  const ScopedEnvironment elevated("KORVANE_POSIX_ELEVATED", "1");
  EXPECT_TRUE(os().windows->Post(window, kAllowed + 1, 0, 0).ok());
}

TEST(RuntimeFolder, FolderIsTheUsersOwnAndClosedToOthers) {
  const test::TemporaryFolder session;
  const ScopedEnvironment environment("XDG_RUNTIME_DIR", session.path().string());
  const std::filesystem::path folder = session / "korvane";
  ASSERT_TRUE(RuntimeFolder().ok());
  EXPECT_EQ(RuntimeFolder().value(), folder);
  EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all);

  std::filesystem::permissions(folder, std::filesystem::perms::group_read,
                               std::filesystem::perm_options::add);
  EXPECT_EQ(RuntimeFolder().error(), static_cast<ErrorCode>(EPERM)) << "open to others";

  std::filesystem::remove(folder);
  std::filesystem::create_directory(session / "elsewhere");
  std::filesystem::permissions(session / "elsewhere", std::filesystem::perms::owner_all);
  std::filesystem::create_directory_symlink(session / "elsewhere", folder);
  EXPECT_EQ(RuntimeFolder().error(), static_cast<ErrorCode>(EPERM)) << "a link";
}

TEST(RuntimeFolder, TemporaryFolderServesWithoutASession) {
  const std::string fallback = "/tmp/korvane-" + std::to_string(geteuid());
  for (const char* session : {"relative/folder", "/nowhere/at/all", ""}) {
    const ScopedEnvironment environment("XDG_RUNTIME_DIR", session);
    ASSERT_TRUE(RuntimeFolder().ok()) << session;
    EXPECT_EQ(RuntimeFolder().value(), fallback) << session;
  }
}

TEST(WindowMeetingPlaceTest, PathOfAnyLengthWillDo) {
  const test::TemporaryFolder session(std::string(200, 'x'));
  const ScopedEnvironment environment("XDG_RUNTIME_DIR", session.path().string());
  TestWindow window(L"Deep");
  ASSERT_TRUE(window.Create(L"deep").ok());
  EXPECT_TRUE(WindowMeetingPlace::Open().value().Connect(ThisProcess()).ok());
}

}  // namespace
}  // namespace korvane::platform
