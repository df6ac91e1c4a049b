#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "platform/files_common.h"
#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

// What the host keeps is the user's alone, as below the profile folder on Windows.
constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;

ErrorCode LastError() { return static_cast<ErrorCode>(errno); }

Status StatusOf(int result) { return result == 0 ? Status::Ok() : Status::Fail(LastError()); }

int DescriptorOf(const File& file) { return static_cast<int>(file.native()); }

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::kRead:
      return O_RDONLY;
    case OpenMode::kWriteShared:
    case OpenMode::kWriteExclusive:
      return O_WRONLY | O_CREAT | O_TRUNC;
    case OpenMode::kAppendLog:
      break;
  }
  return O_WRONLY | O_CREAT | O_APPEND;
}

EntryKind KindOf(mode_t mode) {
  if (S_ISREG(mode)) {
    return EntryKind::kFile;
  }
  if (S_ISDIR(mode)) {
    return EntryKind::kDirectory;
  }
  return S_ISLNK(mode) ? EntryKind::kReparsePoint : EntryKind::kOther;
}

// What stands at the path itself; links are not followed.
Result<struct stat> StatOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    return Result<struct stat>::Fail(LastError());
  }
  return status;
}

Result<bool> MakeOneFolder(const std::filesystem::path& path) {
  if (::mkdir(path.c_str(), kFolderMode) == 0) {
    return true;
  }
  const ErrorCode error = LastError();
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    return false;
  }
  return Result<bool>::Fail(error);
}

// The whole rest of `from` into `to`, as far as it goes.
Status CopyContent(int from, int to) {
  constexpr std::size_t kBufferSize = 65536;
  std::array<char, kBufferSize> buffer;
  for (;;) {
    const ssize_t got = ::read(from, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return got == 0 ? Status::Ok() : Status::Fail(LastError());
    }
    for (ssize_t done = 0; done < got;) {
      const ssize_t put = ::write(to, buffer.data() + done, static_cast<std::size_t>(got - done));
      if (put < 0 && errno != EINTR) {
        return Status::Fail(LastError());
      }
      done += std::max<ssize_t>(put, 0);
    }
  }
}

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

class PosixFiles final : public Files {
 public:
  Result<File> Open(const std::filesystem::path& path, OpenMode mode) override {
    const int descriptor = ::open(path.c_str(), OpenFlags(mode) | O_CLOEXEC, kFileMode);
    if (descriptor < 0) {
      return Result<File>::Fail(LastError());
    }
    File file(this, descriptor);
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
      return Result<File>::Fail(EISDIR);  // reading would open a folder here, and not on Windows
    }
    return file;
  }

  Result<std::size_t> Write(File& file, std::string_view bytes) override {
    ssize_t taken = 0;
    do {
      taken = ::write(DescriptorOf(file), bytes.data(), bytes.size());
    } while (taken < 0 && errno == EINTR);
    if (taken < 0) {
      return Result<std::size_t>::Fail(LastError());
    }
    return static_cast<std::size_t>(taken);
  }

  Result<std::string> Read(File& file, std::uint64_t max_bytes) override {
    return ReadUpTo(max_bytes, ENOMEM, [&file](char* buffer, std::size_t size) {
      ssize_t got = 0;
      do {
        got = ::read(DescriptorOf(file), buffer, size);
      } while (got < 0 && errno == EINTR);
      return got < 0 ? Result<std::size_t>::Fail(LastError())
                     : Result<std::size_t>(static_cast<std::size_t>(got));
    });
  }

  Result<std::uint64_t> Size(File& file) override {
    // Three seeks, since behind a write fstat costs more than the write: it settles the file's
    // times.
    const int descriptor = DescriptorOf(file);
    const off_t position = ::lseek(descriptor, 0, SEEK_CUR);
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    if (position < 0 || end < 0 || ::lseek(descriptor, position, SEEK_SET) < 0) {
      return Result<std::uint64_t>::Fail(LastError());
    }
    return static_cast<std::uint64_t>(end);
  }

  Status SeekToStart(File& file) override {
    return ::lseek(DescriptorOf(file), 0, SEEK_SET) == 0 ? Status::Ok() : Status::Fail(LastError());
  }

  Status TruncateHere(File& file) override {
    const off_t position = ::lseek(DescriptorOf(file), 0, SEEK_CUR);
    return position < 0 ? Status::Fail(LastError())
                        : StatusOf(::ftruncate(DescriptorOf(file), position));
  }

  Status Flush(File& file) override { return StatusOf(::fsync(DescriptorOf(file))); }

  Status Close(File& file) override {
    const int descriptor = static_cast<int>(file.Release());
    // An interrupted close has closed all the same.
    return ::close(descriptor) == 0 || errno == EINTR ? Status::Ok() : Status::Fail(LastError());
  }

  Result<EntryKind> Inspect(const std::filesystem::path& path) override {
    const Result<struct stat> status = StatOf(path);
    if (!status) {
      return IsNotFound(status.error()) ? Result<EntryKind>(EntryKind::kAbsent)
                                        : Result<EntryKind>::Fail(status.error());
    }
    return KindOf(status.value().st_mode);
  }

  Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override {
    const Result<struct stat> status = StatOf(path);
    if (!status || S_ISDIR(status.value().st_mode)) {
      return Result<std::uint64_t>::Fail(status ? EISDIR : status.error());
    }
    return static_cast<std::uint64_t>(status.value().st_size);
  }

  Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) override {
    const Result<struct stat> status = StatOf(path);
    if (!status) {
      return Result<std::int64_t>::Fail(status.error());
    }
    const timespec& changed = status.value().st_mtim;
    return std::int64_t{changed.tv_sec} * 1000 + changed.tv_nsec / 1'000'000;
  }

  Status Copy(const std::filesystem::path& from, const std::filesystem::path& to) override {
    Result<File> source = Open(from, OpenMode::kRead);
    if (!source) {
      return Status::Fail(source.error());
    }
    struct stat status {};
    struct stat target {};
    if (::fstat(DescriptorOf(source.value()), &status) != 0) {
      return Status::Fail(LastError());
    }
    if (::stat(to.c_str(), &target) == 0 && target.st_dev == status.st_dev &&
        target.st_ino == status.st_ino) {
      return Status::Fail(EBUSY);  // opening the target would empty the source
    }
    Result<File> copy = Open(to, OpenMode::kWriteShared);
    if (!copy) {
      return Status::Fail(copy.error());
    }
    const Status copied = CopyContent(DescriptorOf(source.value()), DescriptorOf(copy.value()));
    // The copy is as old as its source, as on Windows.
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    static_cast<void>(::futimens(DescriptorOf(copy.value()), times.data()));
    const Status closed = Close(copy.value());
    return copied ? closed : copied;
  }

  Status Rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return StatusOf(::rename(from.c_str(), to.c_str()));
  }

  Status RemoveFile(const std::filesystem::path& path) override {
    return StatusOf(::unlink(path.c_str()));
  }

  Status RemoveDirectory(const std::filesystem::path& path) override {
    return StatusOf(::rmdir(path.c_str()));
  }

  Result<bool> CreateDirectories(const std::filesystem::path& path) override {
    return MakeWithParents(*this, path, MakeOneFolder);
  }

  Result<std::vector<DirectoryEntry>> List(const std::filesystem::path& path) override {
    using Entries = std::vector<DirectoryEntry>;
    const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(path.c_str()));
    if (directory == nullptr) {
      return Result<Entries>::Fail(LastError());
    }
    Entries entries;
    for (;;) {
      errno = 0;
      const dirent* entry = ::readdir(directory.get());  // NOLINT(concurrency-mt-unsafe): own DIR
      if (entry == nullptr) {
        break;
      }
      const std::string_view name(entry->d_name);
      if (name != "." && name != "..") {
        entries.push_back({name, KindOfEntry(path / name, entry->d_type)});
      }
    }
    if (errno != 0) {
      return Result<Entries>::Fail(LastError());
    }
    std::sort(entries.begin(), entries.end(), [](const auto& left, const auto& right) {
      return left.name.native() < right.name.native();
    });
    return entries;
  }

  bool IsNotFound(ErrorCode error) override { return error == ENOENT || error == ENOTDIR; }

 private:
  EntryKind KindOfEntry(const std::filesystem::path& path, unsigned char type) {
    if (type != DT_UNKNOWN) {
      return KindOf(static_cast<mode_t>(DTTOIF(type)));
    }
    const Result<struct stat> status = StatOf(path);  // some file systems don't tell
    return status ? KindOf(status.value().st_mode) : EntryKind::kOther;
  }
};

}  // namespace

Files& RealFiles() {
  static NoDestructor<PosixFiles> files;
  return *files;
}

}  // namespace korvane::platform
