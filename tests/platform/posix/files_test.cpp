#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "platform/real_os.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

mode_t ModeOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status.st_mode & 0777;
}

TEST(PosixFiles, WhatIsMadeBelongsToTheUserAlone) {
  const test::TemporaryFolder folder;
  ASSERT_TRUE(RealFiles().CreateDirectories(folder / "a" / "b").ok());
  EXPECT_EQ(ModeOf(folder / "a"), 0700U);
  EXPECT_EQ(ModeOf(folder / "a" / "b"), 0700U);
  for (const OpenMode mode :
       {OpenMode::kWriteShared, OpenMode::kWriteExclusive, OpenMode::kAppendLog}) {
    const auto file = folder / std::to_string(static_cast<int>(mode));
    ASSERT_TRUE(RealFiles().Open(file, mode).ok());
    EXPECT_EQ(ModeOf(file), 0600U);
  }
}

TEST(PosixFiles, LinksAreSeenThemselvesAndDanglingOnesAreThere) {
  const test::TemporaryFolder folder;
  test::WriteBytes(folder / "target", "12345");
  std::filesystem::create_symlink(folder / "target", folder / "to_file");
  std::filesystem::create_symlink(folder.path(), folder / "to_folder");
  std::filesystem::create_symlink(folder / "nowhere", folder / "dangling");
  for (const char* link : {"to_file", "to_folder", "dangling"}) {
    EXPECT_EQ(RealFiles().Inspect(folder / link).value(), EntryKind::kReparsePoint);
    EXPECT_NE(RealFiles().SizeOf(folder / link).value(), 5U);
    EXPECT_TRUE(RealFiles().RemoveFile(folder / link));
  }
  EXPECT_EQ(test::ReadBytes(folder / "target"), "12345");
}

TEST(PosixFiles, OtherThingsAreNeitherFilesNorFolders) {
  const test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(RealFiles().Inspect(folder / "pipe").value(), EntryKind::kOther);
  EXPECT_EQ(RealFiles().List(folder.path()).value()[0].kind, EntryKind::kOther);
}

// Not under Wine, which looks for the end and writes there in two steps.
TEST(PosixFiles, AppendLogKeepsLinesOfSeveralWritersWhole) {
  const test::TemporaryFolder folder;
  constexpr int kLines = 200;
  const auto write = [&folder](char letter) {
    Result<File> log = RealFiles().Open(folder / "log", OpenMode::kAppendLog);
    const std::string line = std::string(500, letter) + "\n";
    for (int count = 0; log && count < kLines; ++count) {
      static_cast<void>(RealFiles().Write(log.value(), line));
    }
  };
  std::thread other(write, 'b');
  write('a');
  other.join();

  std::ifstream log(folder / "log");
  std::string line;
  int whole = 0;
  while (std::getline(log, line)) {
    whole += line == std::string(500, 'a') || line == std::string(500, 'b') ? 1 : 0;
  }
  EXPECT_EQ(whole, 2 * kLines);
}

}  // namespace
}  // namespace korvane::platform
