#include "support/memory_files.h"

#include <algorithm>

namespace korvane::test {

using platform::EntryKind;
using platform::File;
using platform::OpenMode;
using platform::Result;
using platform::Status;

std::optional<std::string> MemoryFiles::Content(const std::string& name) const {
  for (const auto& [path, bytes] : files_) {
    if (path.filename() == name) {
      return bytes;
    }
  }
  return std::nullopt;
}

Result<File> MemoryFiles::Open(const std::filesystem::path& path, OpenMode mode) {
  if (mode == OpenMode::kRead && !files_.contains(path)) {
    return Result<File>::Fail(kNotFound);
  }
  std::string& bytes = files_[path];
  if (mode == OpenMode::kWriteShared || mode == OpenMode::kWriteExclusive) {
    bytes.clear();
  }
  const std::intptr_t native = next_++;
  open_[native] = {.path = path, .append = mode == OpenMode::kAppendLog};
  return File(this, native);
}

Result<std::size_t> MemoryFiles::Write(File& file, std::string_view bytes) {
  OpenFile& opened = Opened(file);
  std::string& content = BytesOf(file);
  const std::size_t at = opened.append ? content.size() : opened.position;
  content.resize(std::max(content.size(), at));
  content.replace(at, std::min(bytes.size(), content.size() - at), bytes);
  opened.position = at + bytes.size();
  if (on_write) {
    on_write(opened.path.filename().string(), bytes);
  }
  return bytes.size();
}

Result<std::string> MemoryFiles::Read(File& file, std::uint64_t max_bytes) {
  OpenFile& opened = Opened(file);
  const std::string& content = BytesOf(file);
  std::string bytes = content.substr(std::min(opened.position, content.size()), max_bytes);
  opened.position += bytes.size();
  return bytes;
}

Result<std::uint64_t> MemoryFiles::Size(File& file) { return std::uint64_t{BytesOf(file).size()}; }

Status MemoryFiles::SeekToStart(File& file) {
  Opened(file).position = 0;
  return Status::Ok();
}

Status MemoryFiles::TruncateHere(File& file) {
  BytesOf(file).resize(Opened(file).position);
  return Status::Ok();
}

Status MemoryFiles::Flush(File& /*file*/) { return Status::Ok(); }

Status MemoryFiles::Close(File& file) {
  open_.erase(file.Release());
  return Status::Ok();
}

Result<EntryKind> MemoryFiles::Inspect(const std::filesystem::path& path) {
  if (files_.contains(path)) {
    return EntryKind::kFile;
  }
  return folders_.contains(path) ? EntryKind::kDirectory : EntryKind::kAbsent;
}

Result<std::uint64_t> MemoryFiles::SizeOf(const std::filesystem::path& path) {
  const auto found = files_.find(path);
  if (found == files_.end()) {
    return Result<std::uint64_t>::Fail(kNotFound);
  }
  return std::uint64_t{found->second.size()};
}

Result<std::int64_t> MemoryFiles::ModifiedAt(const std::filesystem::path& path) {
  return files_.contains(path) ? Result<std::int64_t>(0) : Result<std::int64_t>::Fail(kNotFound);
}

Status MemoryFiles::Copy(const std::filesystem::path& from, const std::filesystem::path& to) {
  const auto found = files_.find(from);
  if (found == files_.end()) {
    return Status::Fail(kNotFound);
  }
  files_[to] = found->second;
  return Status::Ok();
}

Status MemoryFiles::Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  const Status copied = Copy(from, to);
  if (copied && on_write) {
    on_write(to.filename().string(), files_[to]);
  }
  return copied ? RemoveFile(from) : copied;
}

Status MemoryFiles::RemoveFile(const std::filesystem::path& path) {
  return files_.erase(path) == 1 ? Status::Ok() : Status::Fail(kNotFound);
}

Status MemoryFiles::RemoveDirectory(const std::filesystem::path& path) {
  return folders_.erase(path) == 1 ? Status::Ok() : Status::Fail(kNotFound);
}

Result<bool> MemoryFiles::CreateDirectories(const std::filesystem::path& path) {
  bool made = false;
  for (auto level = path; level.has_relative_path(); level = level.parent_path()) {
    made |= folders_.emplace(level, true).second;
  }
  return made;
}

Result<std::vector<platform::DirectoryEntry>> MemoryFiles::List(const std::filesystem::path& path) {
  std::vector<platform::DirectoryEntry> entries;
  const auto add = [&](const std::filesystem::path& entry, EntryKind kind) {
    if (entry.parent_path() == path) {
      entries.push_back({.name = entry.filename(), .kind = kind});
    }
  };
  for (const auto& [file, bytes] : files_) {
    add(file, EntryKind::kFile);
  }
  for (const auto& [folder, exists] : folders_) {
    add(folder, EntryKind::kDirectory);
  }
  return entries;
}

}  // namespace korvane::test
