#include "support/links.h"

namespace korvane::test {

FolderLink::FolderLink(const std::filesystem::path& target, const std::filesystem::path& link)
    : link_(link) {
  std::filesystem::create_directory_symlink(target, link);
}

FolderLink::~FolderLink() {
  std::error_code ignored;
  std::filesystem::remove(link_, ignored);
}

}  // namespace korvane::test
