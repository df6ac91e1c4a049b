#include "support/memory_files.h"

#include <algorithm>

namespace korvane::test {

using platform::EntryKind;
using platform::File;
using platform::OpenMode;
using platform::Result;
using platform::Status;

namespace {

using Key = MemoryFiles::Disk::Key;

Key KeyOf(std::filesystem::path path) { return path.make_preferred().native(); }

// Of no encoding, and with what a text format lives on in the wrong places.
std::string Garbage(std::size_t size) {
  constexpr std::string_view kPattern("\xFF{\"\0\n:\\\xC3}", 9);
  std::string garbage;
  while (garbage.size() < size) {
    garbage += kPattern;
  }
  garbage.resize(size);
  return garbage;
}

std::string BytesAfter(Fate fate, const MemoryFiles::Disk::Content& content) {
  const std::size_t at_risk = content.bytes.size() - content.flushed;
  switch (fate) {
    case Fate::kKept:
      return content.bytes;
    case Fate::kLost:
    case Fate::kUndone:
      return content.bytes.substr(0, content.flushed);
    case Fate::kCutShort:
      return content.bytes.substr(0, content.flushed + at_risk / 2);
    case Fate::kGarbage:
      return content.bytes.substr(0, content.flushed) + Garbage(at_risk);
  }
  return {};
}

}  // namespace

std::optional<std::string> MemoryFiles::Content(const std::string& name) const {
  for (const auto& [key, node] : names_.files) {
    if (std::filesystem::path(key).filename() == name) {
      return node->bytes;
    }
  }
  return std::nullopt;
}

MemoryFiles::Disk MemoryFiles::After(Fate fate) const {
  const Names& names = fate == Fate::kUndone ? flushed_names_ : names_;
  Disk disk;
  disk.folders = names.folders;
  for (const auto& [key, node] : names.files) {
    std::string bytes = BytesAfter(fate, *node);
    const std::size_t flushed = fate == Fate::kKept ? node->flushed : bytes.size();
    disk.files[key] = {.bytes = std::move(bytes), .flushed = flushed};
  }
  return disk;
}

void MemoryFiles::Become(const Disk& disk) {
  open_.clear();
  names_ = {};
  names_.folders = disk.folders;
  for (const auto& [key, content] : disk.files) {
    names_.files[key] = std::make_shared<Disk::Content>(content);
  }
  flushed_names_ = names_;
}

MemoryFiles::Node MemoryFiles::Find(const std::filesystem::path& path) const {
  const auto found = names_.files.find(KeyOf(path));
  return found != names_.files.end() ? found->second : nullptr;
}

Result<File> MemoryFiles::Open(const std::filesystem::path& path, OpenMode mode) {
  Node node = Find(path);
  if (mode == OpenMode::kRead && node == nullptr) {
    return Result<File>::Fail(kNotFound);
  }
  const bool truncates = mode == OpenMode::kWriteShared || mode == OpenMode::kWriteExclusive;
  if (node == nullptr || truncates) {
    node = std::make_shared<Disk::Content>();
    names_.files[KeyOf(path)] = node;
  }
  const std::intptr_t native = next_++;
  open_[native] = {.node = std::move(node),
                   .name = path.filename().string(),
                   .append = mode == OpenMode::kAppendLog};
  return File(this, native);
}

Result<std::size_t> MemoryFiles::Write(File& file, std::string_view bytes) {
  OpenFile& opened = Opened(file);
  Disk::Content& content = *opened.node;
  const std::size_t at = opened.append ? content.bytes.size() : opened.position;
  content.bytes.resize(std::max(content.bytes.size(), at));
  content.bytes.replace(at, std::min(bytes.size(), content.bytes.size() - at), bytes);
  content.flushed = std::min(content.flushed, at);
  opened.position = at + bytes.size();
  if (on_write) {
    on_write(opened.name, bytes);
  }
  return bytes.size();
}

Result<std::string> MemoryFiles::Read(File& file, std::uint64_t max_bytes) {
  OpenFile& opened = Opened(file);
  const std::string& content = opened.node->bytes;
  std::string bytes = content.substr(std::min(opened.position, content.size()), max_bytes);
  opened.position += bytes.size();
  return bytes;
}

Result<std::uint64_t> MemoryFiles::Size(File& file) {
  return std::uint64_t{Opened(file).node->bytes.size()};
}

Status MemoryFiles::SeekToStart(File& file) {
  Opened(file).position = 0;
  return Status::Ok();
}

Status MemoryFiles::TruncateHere(File& file) {
  const OpenFile& opened = Opened(file);
  opened.node->bytes.resize(opened.position);
  opened.node->flushed = std::min(opened.node->flushed, opened.position);
  return Status::Ok();
}

Status MemoryFiles::Flush(File& file) {
  Disk::Content& content = *Opened(file).node;
  content.flushed = content.bytes.size();
  flushed_names_ = names_;
  return Status::Ok();
}

Status MemoryFiles::Close(File& file) {
  open_.erase(file.Release());
  return Status::Ok();
}

Result<EntryKind> MemoryFiles::Inspect(const std::filesystem::path& path) {
  if (Find(path) != nullptr) {
    return EntryKind::kFile;
  }
  return names_.folders.contains(KeyOf(path)) ? EntryKind::kDirectory : EntryKind::kAbsent;
}

Result<std::uint64_t> MemoryFiles::SizeOf(const std::filesystem::path& path) {
  const Node node = Find(path);
  return node != nullptr ? Result<std::uint64_t>(node->bytes.size())
                         : Result<std::uint64_t>::Fail(kNotFound);
}

Result<std::int64_t> MemoryFiles::ModifiedAt(const std::filesystem::path& path) {
  return Find(path) != nullptr ? Result<std::int64_t>(0) : Result<std::int64_t>::Fail(kNotFound);
}

Status MemoryFiles::Copy(const std::filesystem::path& from, const std::filesystem::path& to) {
  const Node node = Find(from);
  if (node == nullptr) {
    return Status::Fail(kNotFound);
  }
  names_.files[KeyOf(to)] = std::make_shared<Disk::Content>(Disk::Content{.bytes = node->bytes});
  return Status::Ok();
}

Status MemoryFiles::Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  const Node node = Find(from);
  if (node == nullptr) {
    return Status::Fail(kNotFound);
  }
  names_.files.erase(KeyOf(from));
  names_.files[KeyOf(to)] = node;
  if (on_write) {
    on_write(to.filename().string(), node->bytes);
  }
  return Status::Ok();
}

Status MemoryFiles::RemoveFile(const std::filesystem::path& path) {
  return names_.files.erase(KeyOf(path)) == 1 ? Status::Ok() : Status::Fail(kNotFound);
}

Status MemoryFiles::RemoveDirectory(const std::filesystem::path& path) {
  if (const auto entries = List(path); entries && !entries.value().empty()) {
    return Status::Fail(kNotEmpty);
  }
  return names_.folders.erase(KeyOf(path)) == 1 ? Status::Ok() : Status::Fail(kNotFound);
}

Result<bool> MemoryFiles::CreateDirectories(const std::filesystem::path& path) {
  bool made = false;
  for (auto level = path; level.has_relative_path(); level = level.parent_path()) {
    made |= names_.folders.insert(KeyOf(level)).second;
  }
  return made;
}

Result<std::vector<platform::DirectoryEntry>> MemoryFiles::List(const std::filesystem::path& path) {
  std::vector<platform::DirectoryEntry> entries;
  constexpr auto kSeparator = std::filesystem::path::preferred_separator;
  const Key beginning = KeyOf(path) + kSeparator;
  const auto add = [&](const Key& key, EntryKind kind) {
    if (key.starts_with(beginning) && key.find(kSeparator, beginning.size()) == Key::npos) {
      entries.push_back({.name = key.substr(beginning.size()), .kind = kind});
    }
  };
  for (const auto& [key, node] : names_.files) {
    add(key, EntryKind::kFile);
  }
  for (const Key& key : names_.folders) {
    add(key, EntryKind::kDirectory);
  }
  std::ranges::sort(entries, {}, &platform::DirectoryEntry::name);
  return entries;
}

}  // namespace korvane::test
