#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

#include "platform/os.h"
#include "support/recording_error_stream.h"
#include "support/scoped_environment.h"
#include "support/second_process_role.h"
#include "support/temporary_folder.h"
#include "support/test_window.h"

namespace korvane::platform {
namespace {

using ::korvane::test::ScopedEnvironment;

constexpr ErrorCode kErrorAccessDenied = 5;
constexpr std::uint32_t kAllowed = kWmApp + 43;

// Lets one message through the filter of its window and serves until its input ends.
const test::SecondProcessRole kGuarded("guarded_window", [] {
  test::TestWindow window(L"Guarded");
  if (!window.Create(L"guarded").ok()) {
    return 1;
  }
  static_cast<void>(os().windows->AllowMessage(window.handle(), kAllowed));
  test::SayLine("ready");
  test::HearLine();
  return 0;
});

TEST(PosixWindows, ElevatedWindowTakesFromOthersOnlyWhatItLetThrough) {
  const test::TemporaryFolder runtime;
  const ScopedEnvironment environment("XDG_RUNTIME_DIR", runtime.path().string());
  std::optional<test::SecondProcess> owner;
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

TEST(PosixWindows, MessageBoxIsALineOnTheErrorStream) {
  test::RecordingErrorStream stream;
  Os with_stream = os();
  with_stream.error_stream = &stream;
  const ScopedOs in_force(with_stream);
  EXPECT_EQ(os().windows->ShowMessageBox(L"text \u2014", L"caption", 0x10030), 1);
  EXPECT_THAT(stream.lines(), testing::ElementsAre("caption: text \xE2\x80\x94"));
}

}  // namespace
}  // namespace korvane::platform
