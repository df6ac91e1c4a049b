// files.h: the file operations that the store, the recorder and the evidence tell apart.
//
// Paths are the system's own kind (TextEncoding::PathFromNarrow makes one of a narrow path). Files
// are read and written as bytes everywhere. No operation decides anything; each is one step of a
// caller's sequence. Any thread; one File belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace korvane::platform {

class Files;

// Owns one open file. Closed by Files::Close, or silently by the destructor.
class File {
 public:
  File() = default;
  File(Files* owner, std::intptr_t native) : owner_(owner), native_(native) {}
  ~File() { Reset(); }
  File(File&& other) noexcept
      : owner_(std::exchange(other.owner_, nullptr)), native_(std::exchange(other.native_, -1)) {}
  File& operator=(File&& other) noexcept {
    if (this != &other) {
      Reset();
      owner_ = std::exchange(other.owner_, nullptr);
      native_ = std::exchange(other.native_, -1);
    }
    return *this;
  }

  explicit operator bool() const { return native_ != -1; }
  std::intptr_t native() const { return native_; }
  std::intptr_t Release() {
    owner_ = nullptr;
    return std::exchange(native_, -1);
  }
  void Reset();

 private:
  Files* owner_ = nullptr;
  std::intptr_t native_ = -1;  // HANDLE or descriptor; -1 is none on both systems
};

enum class OpenMode {
  // Existing file for reading, shared for reading, writing and deleting.
  kRead,
  // Created or truncated for writing, shared for reading and writing.
  kWriteShared,
  // Created or truncated for writing with no sharing (CreateFileA CREATE_ALWAYS). A second opener
  // gets a sharing violation on Windows; Linux knows none.
  kWriteExclusive,
  // Created if need be; each write goes to the end; shared for reading and writing. May also be
  // sought and truncated by its own handle: access 0x40000084 (generic write, append, read
  // attributes), share 3, OPEN_ALWAYS, normal attributes. Linux: O_APPEND.
  kAppendLog,
};

// What stands at a path. Links are not followed.
enum class EntryKind {
  kAbsent,  // the not-found family of errors: 2, 3, 53, 64, 123, 267; ENOENT, ENOTDIR
  kFile,
  kDirectory,
  kReparsePoint,  // a link or any other reparse point, to a file or a folder
  kOther,
};

struct DirectoryEntry {
  std::filesystem::path name;  // without the folder
  EntryKind kind = EntryKind::kOther;
};

class Files {
 public:
  virtual ~Files() = default;

  virtual Result<File> Open(const std::filesystem::path& path, OpenMode mode) = 0;

  // One write; the result is the number of bytes that were taken, which may be fewer than asked.
  // kAppendLog writes at the present end, in one piece against other processes (WriteFile with the
  // all-ones offset).
  virtual Result<std::size_t> Write(File& file, std::string_view bytes) = 0;

  // Reads on from the file's position, up to max_bytes or the end of the file.
  virtual Result<std::string> Read(File& file, std::uint64_t max_bytes) = 0;

  virtual Result<std::uint64_t> Size(File& file) = 0;
  virtual Status SeekToStart(File& file) = 0;
  // Cuts the file at its present position (SetEndOfFile).
  virtual Status TruncateHere(File& file) = 0;
  // To the disk: FlushFileBuffers, fsync.
  virtual Status Flush(File& file) = 0;
  // The file is none afterwards, whatever the result.
  virtual Status Close(File& file) = 0;

  // A failure is an error outside the not-found family; what stands there is then unknown.
  virtual Result<EntryKind> Inspect(const std::filesystem::path& path) = 0;
  // The size of a file by its path.
  virtual Result<std::uint64_t> SizeOf(const std::filesystem::path& path) = 0;
  // Last change, in milliseconds since the Unix epoch.
  virtual Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) = 0;

  // CopyFileW, replacing the target.
  virtual Status Copy(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // MoveFileExW with MOVEFILE_REPLACE_EXISTING; rename.
  virtual Status Rename(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // A file or a link itself (DeleteFileW). Absent is a failure like any other.
  virtual Status RemoveFile(const std::filesystem::path& path) = 0;
  // An empty folder (RemoveDirectoryW).
  virtual Status RemoveDirectory(const std::filesystem::path& path) = 0;
  // With all missing levels. True when it was made by this call, false when it was there already.
  virtual Result<bool> CreateDirectories(const std::filesystem::path& path) = 0;
  // The folder's entries, without "." and "..", in ascending byte order of their names.
  virtual Result<std::vector<DirectoryEntry>> List(const std::filesystem::path& path) = 0;

  // Whether an error number means that there is nothing at the path (the family above).
  virtual bool IsNotFound(ErrorCode error) = 0;
};

inline void File::Reset() {
  if (native_ != -1 && owner_ != nullptr) {
    static_cast<void>(owner_->Close(*this));
  }
  owner_ = nullptr;
  native_ = -1;
}

}  // namespace korvane::platform
