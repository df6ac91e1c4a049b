// memory_files.h: files that live in memory, with folders that exist when they were created.
//
// One thread. No sharing rules, no links, no times.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace korvane::test {

class MemoryFiles : public platform::Files {
 public:
  // Called with a file's name, without its folder: with the bytes that are written to it, and with
  // all that it holds when it has taken that name by a rename.
  std::function<void(const std::string& name, std::string_view bytes)> on_write;

  // The bytes of the one file with this name, in whatever folder; nothing when there is none.
  std::optional<std::string> Content(const std::string& name) const;

  platform::Result<platform::File> Open(const std::filesystem::path& path,
                                        platform::OpenMode mode) override;
  platform::Result<std::size_t> Write(platform::File& file, std::string_view bytes) override;
  platform::Result<std::string> Read(platform::File& file, std::uint64_t max_bytes) override;
  platform::Result<std::uint64_t> Size(platform::File& file) override;
  platform::Status SeekToStart(platform::File& file) override;
  platform::Status TruncateHere(platform::File& file) override;
  platform::Status Flush(platform::File& file) override;
  platform::Status Close(platform::File& file) override;
  platform::Result<platform::EntryKind> Inspect(const std::filesystem::path& path) override;
  platform::Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override;
  platform::Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) override;
  platform::Status Copy(const std::filesystem::path& from,
                        const std::filesystem::path& to) override;
  platform::Status Rename(const std::filesystem::path& from,
                          const std::filesystem::path& to) override;
  platform::Status RemoveFile(const std::filesystem::path& path) override;
  platform::Status RemoveDirectory(const std::filesystem::path& path) override;
  platform::Result<bool> CreateDirectories(const std::filesystem::path& path) override;
  platform::Result<std::vector<platform::DirectoryEntry>> List(
      const std::filesystem::path& path) override;
  bool IsNotFound(platform::ErrorCode error) override { return error == kNotFound; }

 private:
  static constexpr platform::ErrorCode kNotFound = 2;

  struct OpenFile {
    std::filesystem::path path;
    std::size_t position = 0;
    bool append = false;
  };

  OpenFile& Opened(const platform::File& file) { return open_.at(file.native()); }
  std::string& BytesOf(const platform::File& file) { return files_[Opened(file).path]; }

  std::map<std::filesystem::path, std::string> files_;
  std::map<std::filesystem::path, bool> folders_;
  std::map<std::intptr_t, OpenFile> open_;
  std::intptr_t next_ = 1;
};

}  // namespace korvane::test
