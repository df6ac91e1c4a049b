// links.h: links of the file system, as far as a test can make them.
#pragma once

#include <filesystem>

namespace korvane::test {

// A symbolic link to a folder, removed at the end of the scope. Throws when it can't be made.
class FolderLink {
 public:
  FolderLink(const std::filesystem::path& target, const std::filesystem::path& link);
  ~FolderLink();
  FolderLink(const FolderLink&) = delete;
  FolderLink& operator=(const FolderLink&) = delete;

 private:
  std::filesystem::path link_;
};

}  // namespace korvane::test
