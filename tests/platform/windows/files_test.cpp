#include "platform/files.h"

#include <gtest/gtest.h>

#include "platform/real_os.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

constexpr ErrorCode kSharingViolation = 32;

TEST(WindowsFiles, ExclusiveFileRefusesEverybodyElse) {
  const test::TemporaryFolder folder;
  Files& files = RealFiles();
  const Result<File> held = files.Open(folder / "f", OpenMode::kWriteExclusive);
  ASSERT_TRUE(held);
  test::WriteBytes(folder / "g", "");
  for (const OpenMode mode :
       {OpenMode::kRead, OpenMode::kWriteShared, OpenMode::kWriteExclusive, OpenMode::kAppendLog}) {
    EXPECT_EQ(files.Open(folder / "f", mode).error(), kSharingViolation);
  }
  EXPECT_EQ(files.RemoveFile(folder / "f").error(), kSharingViolation);
  EXPECT_FALSE(files.Rename(folder / "g", folder / "f"));
  EXPECT_EQ(files.Inspect(folder / "f").value(), EntryKind::kFile);
}

TEST(WindowsFiles, ShareModesAreThoseOfTheHeader) {
  struct Row {
    const char* why;
    OpenMode held;
    OpenMode second;
    bool granted;
  };
  constexpr Row kRows[] = {
      {"a log is read while it is written", OpenMode::kAppendLog, OpenMode::kRead, true},
      {"two processes write one log", OpenMode::kAppendLog, OpenMode::kAppendLog, true},
      {"the store's file stays open to others", OpenMode::kWriteShared, OpenMode::kWriteShared,
       true},
      {"a reader stands in nobody's way", OpenMode::kRead, OpenMode::kWriteShared, true},
      {"an exclusive writer wants no reader", OpenMode::kRead, OpenMode::kWriteExclusive, false},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.why);
    const test::TemporaryFolder folder;
    test::WriteBytes(folder / "f", "");
    const Result<File> held = RealFiles().Open(folder / "f", row.held);
    ASSERT_TRUE(held);
    EXPECT_EQ(RealFiles().Open(folder / "f", row.second).ok(), row.granted);
  }
}

TEST(WindowsFiles, ReaderLetsTheFileBeDeletedAndWritersDont) {
  const test::TemporaryFolder folder;
  for (const OpenMode mode : {OpenMode::kRead, OpenMode::kWriteShared, OpenMode::kAppendLog}) {
    test::WriteBytes(folder / "f", "");
    const Result<File> held = RealFiles().Open(folder / "f", mode);
    ASSERT_TRUE(held);
    EXPECT_EQ(RealFiles().RemoveFile(folder / "f").ok(), mode == OpenMode::kRead);
  }
}

TEST(WindowsFiles, NotFoundFamilyIsExactlyTheSixNumbers) {
  std::vector<ErrorCode> family;
  for (ErrorCode error = 0; error < 2000; ++error) {
    if (RealFiles().IsNotFound(error)) {
      family.push_back(error);
    }
  }
  EXPECT_EQ(family, (std::vector<ErrorCode>{2, 3, 53, 64, 123, 267}));
}

}  // namespace
}  // namespace korvane::platform
