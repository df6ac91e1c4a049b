#include "platform/kernel_objects.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/posix/object_folder.h"
#include "platform/real_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

class RuntimeFolderTest : public testing::Test {
 protected:
  std::size_t FilesOfNames() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(runtime_ / "korvane/objects")) {
      ++count;
    }
    return count;
  }

  test::TemporaryFolder runtime_;
  test::ScopedEnvironment environment_{"XDG_RUNTIME_DIR", runtime_.path().string()};
  KernelObjects& objects_ = RealKernelObjects();
};

TEST_F(RuntimeFolderTest, ClosedObjectsLeaveNoFile) {
  {
    const CreatedMutex mutex = objects_.CreateNamedMutex(L"Local\\a", true);
    const auto event = objects_.CreateNamedEvent(L"Global\\a");
    EXPECT_EQ(FilesOfNames(), 2U);
  }
  EXPECT_EQ(FilesOfNames(), 0U);
}

// What the file of a process that died in the midst of it looks like.
TEST_F(RuntimeFolderTest, LeftoverOfAnyContentCountsAsAbsent) {
  std::filesystem::create_directories(runtime_ / "korvane/objects");
  std::filesystem::permissions(runtime_ / "korvane", std::filesystem::perms::owner_all);
  test::WriteBytes(runtime_ / "korvane/objects/local.a", "x");
  EXPECT_EQ(objects_.OpenNamedEvent(L"Local\\a").error(), 2U);
  test::WriteBytes(runtime_ / "korvane/objects/local.a", std::string(100, '\xFF'));
  const CreatedMutex mutex = objects_.CreateNamedMutex(L"Local\\a", true);
  EXPECT_EQ(mutex.code, 0U);
  EXPECT_TRUE(objects_.ReleaseMutex(mutex.handle));
}

TEST(ObjectFileNameTest, EveryNameHasAFileNameOfItsOwn) {
  EXPECT_EQ(ObjectFileName(L"Local\\Korvane.Takeover.0A.Request").value(),
            "local.Korvane.Takeover.0A.Request");
  EXPECT_EQ(ObjectFileName(L"Global\\..").value(), "global...");
  EXPECT_EQ(ObjectFileName(L"a/b%\x44F").value(), "local.a%2Fb%25%D1%8F");
  EXPECT_FALSE(ObjectFileName(L"Local\\"));
  EXPECT_FALSE(ObjectFileName(L"Other\\a"));
}

}  // namespace
}  // namespace korvane::platform
