#include "platform/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/real_os.h"
#include "support/links.h"
#include "support/temporary_folder.h"

namespace korvane::platform {
namespace {

using std::filesystem::path;
using test::ReadBytes;
using test::TemporaryFolder;
using test::WriteBytes;
using testing::ElementsAre;

constexpr std::uint64_t kEverything = std::numeric_limits<std::uint64_t>::max();
// Cyrillic, CJK and a character beyond the first plane, as UTF-8.
constexpr char8_t kForeignName[] = u8"\u041F\u0443\u0442\u044C \u8DEF\u5F84 \U0001F511";

// Every byte value, line ends of all kinds and NUL included.
std::string AllBytes() {
  std::string bytes;
  for (int value = 0; value < 256; ++value) {
    bytes += static_cast<char>(value);
  }
  return bytes + "\r\n\n\x1A\r";
}

class FilesTest : public testing::Test {
 protected:
  void WriteWith(OpenMode mode, const path& file, std::string_view bytes) {
    Result<File> opened = files_.Open(file, mode);
    ASSERT_TRUE(opened) << opened.error();
    const Result<std::size_t> taken = files_.Write(opened.value(), bytes);
    ASSERT_TRUE(taken) << taken.error();
    EXPECT_EQ(taken.value(), bytes.size());
    EXPECT_TRUE(files_.Close(opened.value()));
    EXPECT_FALSE(opened.value());
  }

  std::vector<path> Names(const path& folder) {
    const auto entries = files_.List(folder);
    EXPECT_TRUE(entries) << entries.error();
    std::vector<path> names;
    for (const DirectoryEntry& entry : entries ? entries.value() : std::vector<DirectoryEntry>()) {
      names.push_back(entry.name);
    }
    return names;
  }

  TemporaryFolder folder_;
  Files& files_ = RealFiles();
};

// Each open file is closed before the next, or an exclusive one would be refused on Windows.
TEST_F(FilesTest, BytesGoInAndComeOutUnchangedAndAnAppenderAloneKeepsThem) {
  const path inner = folder_ / kForeignName;
  ASSERT_TRUE(files_.CreateDirectories(inner).ok());
  for (const OpenMode mode :
       {OpenMode::kWriteShared, OpenMode::kWriteExclusive, OpenMode::kAppendLog}) {
    const path file = inner / (std::to_string(static_cast<int>(mode)) + ".bin");
    WriteWith(mode, file, AllBytes());
    Result<File> opened = files_.Open(file, OpenMode::kRead);
    ASSERT_TRUE(opened);
    EXPECT_EQ(files_.Size(opened.value()).value(), AllBytes().size());
    EXPECT_EQ(files_.Read(opened.value(), kEverything).value(), AllBytes());
    { const File closed_by_its_end = opened.take(); }
    WriteWith(mode, file, "x");
    EXPECT_EQ(ReadBytes(file), mode == OpenMode::kAppendLog ? AllBytes() + "x" : "x");
  }
}

TEST_F(FilesTest, ReadingStopsAtTheLimitAndGoesOnFromThere) {
  std::string content(300'000, 'a');
  content.replace(100'000, 3, "xyz");
  WriteBytes(folder_ / "f", content);
  Result<File> file = files_.Open(folder_ / "f", OpenMode::kRead);
  ASSERT_TRUE(file);
  EXPECT_EQ(files_.Read(file.value(), 0).value(), "");
  EXPECT_EQ(files_.Read(file.value(), 100'001).value(), content.substr(0, 100'001));
  EXPECT_EQ(files_.Read(file.value(), kEverything).value(), content.substr(100'001));
  EXPECT_EQ(files_.Read(file.value(), 10).value(), "");
}

TEST_F(FilesTest, AppendLogFollowsTheEndThatAnotherHandleHasMoved) {
  const path log = folder_ / "startup.log";
  Result<File> first = files_.Open(log, OpenMode::kAppendLog);
  Result<File> second = files_.Open(log, OpenMode::kAppendLog);
  ASSERT_TRUE(first && second);
  ASSERT_TRUE(files_.Write(first.value(), "one\n"));
  ASSERT_TRUE(files_.Write(second.value(), "two\n"));
  ASSERT_TRUE(files_.Write(first.value(), "three\n"));
  EXPECT_EQ(ReadBytes(log), "one\ntwo\nthree\n");

  ASSERT_TRUE(files_.SeekToStart(second.value()));
  ASSERT_TRUE(files_.TruncateHere(second.value()));
  ASSERT_TRUE(files_.Write(first.value(), "four\n"));
  ASSERT_TRUE(files_.Write(second.value(), "five\n"));
  EXPECT_EQ(ReadBytes(log), "four\nfive\n");
}

TEST_F(FilesTest, ModeAllowsOnlyWhatItSays) {
  WriteBytes(folder_ / "f", "text");
  Result<File> reader = files_.Open(folder_ / "f", OpenMode::kRead);
  Result<File> appender = files_.Open(folder_ / "f", OpenMode::kAppendLog);
  ASSERT_TRUE(reader && appender);
  EXPECT_FALSE(files_.Write(reader.value(), "x").ok());
  EXPECT_FALSE(files_.TruncateHere(reader.value()).ok());
  EXPECT_FALSE(files_.Read(appender.value(), 1).ok());
  EXPECT_TRUE(files_.Flush(appender.value()));
}

TEST_F(FilesTest, WhatIsNotThereIsToldFromOtherFailures) {
  WriteBytes(folder_ / "file", "");
  for (const path& absent : {folder_ / "no", folder_ / "no" / "deep", folder_ / "file" / "below"}) {
    SCOPED_TRACE(absent);
    EXPECT_TRUE(files_.IsNotFound(files_.Open(absent, OpenMode::kRead).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.SizeOf(absent).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.ModifiedAt(absent).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.RemoveFile(absent).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.RemoveDirectory(absent).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.List(absent).error()));
    EXPECT_TRUE(files_.IsNotFound(files_.Copy(absent, folder_ / "copy").error()));
    EXPECT_TRUE(files_.IsNotFound(files_.Rename(absent, folder_ / "other").error()));
    EXPECT_EQ(files_.Inspect(absent).value(), EntryKind::kAbsent);
  }
  EXPECT_THAT(Names(folder_.path()), ElementsAre("file"));
  EXPECT_FALSE(files_.IsNotFound(0));
}

TEST_F(FilesTest, ChangeTimeIsInUnixMillisecondsAndACopyKeepsIt) {
  const path file = folder_ / "f";
  WriteBytes(file, "x");
  const std::int64_t now = RealClocks().UnixMilliseconds();
  const std::int64_t changed = files_.ModifiedAt(file).value();
  EXPECT_LE(std::abs(now - changed), 60'000);

  const auto day_earlier = std::filesystem::last_write_time(file) - std::chrono::hours(24);
  std::filesystem::last_write_time(file, day_earlier);
  const std::int64_t set = files_.ModifiedAt(file).value();
  EXPECT_LT(std::abs(set - (changed - 86'400'000)), 1000);  // MinGW's library sets whole seconds
  ASSERT_TRUE(files_.Copy(file, folder_ / "copy"));
  EXPECT_EQ(files_.ModifiedAt(folder_ / "copy").value(), set);
}

TEST_F(FilesTest, CopyAndRenameReplaceTheirTarget) {
  WriteBytes(folder_ / "from", AllBytes());
  WriteBytes(folder_ / "to", std::string(1000, 'o'));
  ASSERT_TRUE(files_.Copy(folder_ / "from", folder_ / "to"));
  EXPECT_EQ(ReadBytes(folder_ / "to"), AllBytes());
  EXPECT_EQ(ReadBytes(folder_ / "from"), AllBytes());

  WriteBytes(folder_ / "from", "new");
  ASSERT_TRUE(files_.Rename(folder_ / "from", folder_ / "to"));
  EXPECT_EQ(ReadBytes(folder_ / "to"), "new");
  EXPECT_THAT(Names(folder_.path()), ElementsAre("to"));
}

TEST_F(FilesTest, WhatIsOfTheWrongKindOrInTheWayIsRefusedAndLeftWhole) {
  ASSERT_TRUE(files_.CreateDirectories(folder_ / "full" / "empty").ok());
  WriteBytes(folder_ / "f", "precious");
  for (const OpenMode mode :
       {OpenMode::kRead, OpenMode::kWriteShared, OpenMode::kWriteExclusive, OpenMode::kAppendLog}) {
    const Result<File> file = files_.Open(folder_.path(), mode);
    ASSERT_FALSE(file.ok());
    EXPECT_FALSE(files_.IsNotFound(file.error()));
  }
  EXPECT_FALSE(files_.SizeOf(folder_.path()).ok());
  EXPECT_FALSE(files_.Copy(folder_ / "f", folder_ / "f").ok());
  EXPECT_FALSE(files_.Copy(folder_ / "f", folder_ / "no" / "copy").ok());
  EXPECT_FALSE(files_.Copy(folder_.path(), folder_ / "copy").ok());
  EXPECT_FALSE(files_.Rename(folder_ / "f", folder_ / "full"));
  EXPECT_EQ(ReadBytes(folder_ / "f"), "precious");
  EXPECT_FALSE(files_.RemoveDirectory(folder_ / "f"));
  EXPECT_FALSE(files_.RemoveDirectory(folder_ / "full"));
  EXPECT_FALSE(files_.RemoveFile(folder_ / "full"));
  EXPECT_THAT(Names(folder_.path()), ElementsAre("f", "full"));
  ASSERT_TRUE(files_.Rename(folder_ / "full", folder_ / "moved"));
  EXPECT_TRUE(files_.RemoveDirectory(folder_ / "moved" / "empty"));
  EXPECT_TRUE(files_.RemoveDirectory(folder_ / "moved"));
  EXPECT_TRUE(files_.RemoveFile(folder_ / "f"));
  EXPECT_THAT(Names(folder_.path()), ElementsAre());
}

TEST_F(FilesTest, CreatingFoldersTellsWhetherItMadeThem) {
  struct Row {
    const char* why;
    path folder;
    bool made;
  };
  const Row rows[] = {
      {"all levels are missing", folder_ / "a" / "b" / "c", true},
      {"it is there already", folder_ / "a" / "b", false},
      {"a separator at the end names the same folder", folder_ / "a" / "b" / "", false},
      {"levels are missing below a separator at the end", folder_ / "d" / "e" / "", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const Result<bool> made = files_.CreateDirectories(row.folder);
    ASSERT_TRUE(made) << made.error();
    EXPECT_EQ(made.value(), row.made);
    EXPECT_EQ(files_.Inspect(row.folder).value(), EntryKind::kDirectory);
  }
  WriteBytes(folder_ / "file", "");
  EXPECT_FALSE(files_.CreateDirectories(folder_ / "file").ok());
  EXPECT_FALSE(files_.CreateDirectories(folder_ / "file" / "x" / "y").ok());
}

TEST_F(FilesTest, ListIsInByteOrderOfUtf8Names) {
  // U+FF21 stands before U+1F511 in UTF-8, and behind it in UTF-16.
  const path names[] = {u8"B", u8"a", u8"\u00E9", u8"\uFF21", u8"\U0001F511"};
  for (const path& name : {names[4], names[1], names[3], names[0], names[2]}) {
    WriteBytes(folder_ / name, "");
  }
  EXPECT_THAT(Names(folder_.path()), testing::ElementsAreArray(names));
}

TEST_F(FilesTest, KindsAreToldAndTheTargetOfAFolderLinkIsSafe) {
  ASSERT_TRUE(files_.CreateDirectories(folder_ / "target").ok());
  EXPECT_TRUE(files_.List(folder_ / "target").value().empty());
  WriteBytes(folder_ / "target" / "f", "kept");
  WriteBytes(folder_ / "file", "12345");
  EXPECT_EQ(files_.SizeOf(folder_ / "file").value(), 5U);
  const test::FolderLink link(folder_ / "target", folder_ / "link");
  const auto entries = files_.List(folder_.path());
  ASSERT_TRUE(entries);
  std::vector<EntryKind> kinds;
  for (const DirectoryEntry& entry : entries.value()) {
    kinds.push_back(entry.kind);
    EXPECT_EQ(files_.Inspect(folder_ / entry.name).value(), entry.kind) << entry.name;
  }
  EXPECT_THAT(kinds,
              ElementsAre(EntryKind::kFile, EntryKind::kReparsePoint, EntryKind::kDirectory));

  // Wine takes the link for its target here, and refuses.
  const bool removed = files_.RemoveFile(folder_ / "link").ok();
  EXPECT_EQ(files_.Inspect(folder_ / "link").value() == EntryKind::kAbsent, removed);
  EXPECT_EQ(ReadBytes(folder_ / "target" / "f"), "kept");
}

}  // namespace
}  // namespace korvane::platform
