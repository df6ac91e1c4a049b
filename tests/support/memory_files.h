// memory_files.h: files that live in memory, with folders that exist when they were created, and
// with the memory of a disk: what a power cut would leave of them.
//
// What is on the disk at a moment:
//   bytes  those that Flush put there. Of those written behind them any may be there or not; a
//          file's length may be there without them. Truncating counts as a change of names.
//   names  making, renaming and removing are each wholly done or not at all. No operation promises
//          that they are on the disk, but they get there in their order, as a file system's journal
//          writes them, and a Flush takes all that came before it along. A rename doesn't take the
//          file's bytes along.
// A process that ends loses nothing of either.
//
// One thread. No sharing rules, no links, no times.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace korvane::test {

// What becomes of the bytes that weren't flushed; and of the names changed since the last flush.
enum class Fate {
  kKept,      // all is there, and still not flushed: the process ended, the machine did not
  kLost,      // the bytes aren't there
  kCutShort,  // the first half of them is
  kGarbage,   // the length is there, with other bytes
  kUndone,    // neither the bytes nor the names are
};
inline constexpr Fate kFates[] = {Fate::kKept, Fate::kLost, Fate::kCutShort, Fate::kGarbage,
                                  Fate::kUndone};

class MemoryFiles : public platform::Files {
 public:
  // All that a machine finds when it starts again. A key is a path in its system's spelling.
  struct Disk {
    struct Content {
      std::string bytes;
      std::size_t flushed = 0;  // how many of them, from the first
      auto operator<=>(const Content&) const = default;
    };
    using Key = std::filesystem::path::string_type;

    std::map<Key, Content> files;
    std::set<Key> folders;
    auto operator<=>(const Disk&) const = default;
  };

  // Called with a file's name, without its folder: with the bytes that are written to it, and with
  // all that it holds when it has taken that name by a rename.
  std::function<void(const std::string& name, std::string_view bytes)> on_write;

  // The bytes of the one file with this name, in whatever folder; nothing when there is none.
  std::optional<std::string> Content(const std::string& name) const;

  // What is found after an end at this moment; and the same put in place of all that is here.
  Disk After(Fate fate) const;
  void Become(const Disk& disk);

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
  static constexpr platform::ErrorCode kNotEmpty = 145;

  // Shared by the names of now, those on the disk, and the open files.
  using Node = std::shared_ptr<Disk::Content>;
  struct Names {
    std::map<Disk::Key, Node> files;
    std::set<Disk::Key> folders;
  };
  struct OpenFile {
    Node node;
    std::string name;
    std::size_t position = 0;
    bool append = false;
  };

  OpenFile& Opened(const platform::File& file) { return open_.at(file.native()); }
  Node Find(const std::filesystem::path& path) const;

  Names names_;
  Names flushed_names_;
  std::map<std::intptr_t, OpenFile> open_;
  std::intptr_t next_ = 1;
};

}  // namespace korvane::test
