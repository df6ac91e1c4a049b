#include "support/counting_os.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdlib>

#include "support/fake_clock.h"
#include "support/recording_error_stream.h"
#include "support/temporary_folder.h"

namespace korvane::test {
namespace {

using platform::Files;
using platform::OpenMode;
using platform::Os;
using testing::ElementsAre;

// Makes a file with two writes and takes it away; how many of the five results were failures.
int MakeAndRemove(const Os& os, const std::filesystem::path& path) {
  int failures = 0;
  auto file = os.files->Open(path, OpenMode::kWriteShared);
  failures += file.ok() ? 0 : 1;
  if (file) {
    failures += os.files->Write(file.value(), "one ").ok() ? 0 : 1;
    failures += os.files->Write(file.value(), "two").ok() ? 0 : 1;
    failures += os.files->Close(file.value()).ok() ? 0 : 1;
    EXPECT_FALSE(file.value());
  }
  return failures + (os.files->RemoveFile(path).ok() ? 0 : 1);
}

TEST(CountingOs, EverySubjectIsDecorated) {
  CountingOs counting(platform::RealOs());
  using Pointers = std::array<const void*, sizeof(Os) / sizeof(void*)>;
  const auto inner = std::bit_cast<Pointers>(platform::RealOs());
  const auto decorated = std::bit_cast<Pointers>(counting.os());
  for (std::size_t subject = 0; subject < inner.size(); ++subject) {
    EXPECT_NE(decorated[subject], nullptr);
    EXPECT_NE(decorated[subject], inner[subject]);
  }
}

TEST(CountingOs, FailsOneOperationOnly) {
  const TemporaryFolder folder;
  for (std::size_t step = 1; step <= 5; ++step) {
    SCOPED_TRACE(step);
    CountingOs failing(platform::RealOs(), FailOnce(step));
    // Without the file its removal fails by itself.
    EXPECT_EQ(MakeAndRemove(failing.os(), folder / "f"), step == 1 ? 2 : 1);
    EXPECT_EQ(std::filesystem::exists(folder / "f"), step == 5);
  }
  CountingOs behind(platform::RealOs(), FailOnce(6));
  EXPECT_EQ(MakeAndRemove(behind.os(), folder / "f"), 0);
}

TEST(CountingOs, FailsLastinglyWithTheChosenNumber) {
  const TemporaryFolder folder;
  CountingPlan plan = FailFrom(3);
  plan.error = 112;
  CountingOs failing(platform::RealOs(), plan);
  EXPECT_EQ(MakeAndRemove(failing.os(), folder / "f"), 3);
  EXPECT_EQ(ReadBytes(folder / "f"), "one ");
  const Os& os = failing.os();
  EXPECT_EQ(os.files->Inspect(folder / "f").error(), 112U);
  EXPECT_EQ(os.registry->ReadDword(platform::RegistryHive::kCurrentUser, L"k", L"v").error(), 112U);
  EXPECT_EQ(os.kernel_objects->CreateNamedMutex(L"Local\\korvane-test", false).code, 112U);
  EXPECT_EQ(os.kernel_objects->Wait({}, 0).result, platform::kWaitFailed);
  EXPECT_EQ(os.text->WideToUtf8(L"x"), std::nullopt);
  EXPECT_FALSE(os.elevation->IsAdministrator());
  EXPECT_EQ(os.elevation->UserSid(), L"");
  EXPECT_TRUE(os.code_trust->FindSigner(folder / "f").query_failed);
}

TEST(CountingOs, StopsBeforeTheChangingOperation) {
  const TemporaryFolder folder;
  struct Stopped {};
  CountingOs stopping(platform::RealOs(), StopAt(3, [] { throw Stopped(); }));
  EXPECT_THROW(MakeAndRemove(stopping.os(), folder / "f"), Stopped);
  EXPECT_EQ(ReadBytes(folder / "f"), "one ");
  EXPECT_EQ(stopping.count(), 3U);
}

}  // namespace
}  // namespace korvane::test
