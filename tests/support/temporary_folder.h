// temporary_folder.h: a folder of a test's own in the system's temporary folder, and the bytes of
// files in it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::test {

// Made empty, under a name that no other process has; removed with all that is in it. A link in it
// is removed itself, never what it leads to. Throws when it can't be made.
class TemporaryFolder {
 public:
  // `name` is a level of its own below the unique folder, for names in other scripts.
  explicit TemporaryFolder(const std::filesystem::path& name = {});
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

 private:
  std::filesystem::path root_;
  std::filesystem::path path_;
};

// Creates or replaces the file; throws when it can't.
void WriteBytes(const std::filesystem::path& file, std::string_view bytes);
// The whole file; nothing when it can't be read.
std::optional<std::string> ReadBytes(const std::filesystem::path& file);

}  // namespace korvane::test
