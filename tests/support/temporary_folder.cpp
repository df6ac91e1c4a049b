#include "support/temporary_folder.h"

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "platform/real_os.h"

namespace korvane::test {
namespace {

using std::filesystem::path;

path MakeUniqueFolder() {
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string name = "korvane-test-" + std::to_string(random()) + std::to_string(random());
    path folder = std::filesystem::temp_directory_path() / name;
    if (std::filesystem::create_directory(folder)) {
      return folder;
    }
  }
  throw std::runtime_error("no free name for a temporary folder");
}

// By the layer under test, since the library's remove_all follows folder links on Windows.
void RemoveTree(const path& folder) {
  platform::Files& files = platform::RealFiles();
  if (const auto entries = files.List(folder)) {
    for (const platform::DirectoryEntry& entry : entries.value()) {
      const path inner = folder / entry.name;
      if (entry.kind == platform::EntryKind::kDirectory) {
        RemoveTree(inner);
      } else {
        static_cast<void>(files.RemoveFile(inner));
      }
    }
  }
  static_cast<void>(files.RemoveDirectory(folder));
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::filesystem::path& name)
    : root_(MakeUniqueFolder()), path_(name.empty() ? root_ : root_ / name) {
  std::filesystem::create_directories(path_);
}

TemporaryFolder::~TemporaryFolder() { RemoveTree(root_); }

void WriteBytes(const path& file, std::string_view bytes) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream.close();
  if (!stream) {
    throw std::runtime_error("can't write " + file.string());
  }
}

std::optional<std::string> ReadBytes(const path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream || std::filesystem::is_directory(file)) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

}  // namespace korvane::test
