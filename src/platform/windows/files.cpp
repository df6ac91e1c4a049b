#include "platform/files.h"

#include <windows.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "platform/files_common.h"
#include "platform/no_destructor.h"
#include "platform/real_os.h"

#undef RemoveDirectory  // a macro of the system's header over the name of our method

namespace korvane::platform {
namespace {

// The system ignores the low two bits of a file handle, which are free for its owner's use: this
// one marks an append log, whose writes take another offset.
constexpr std::intptr_t kAppendMark = 1;

struct OpenArguments {
  DWORD access;
  DWORD sharing;
  DWORD disposition;
};

OpenArguments ArgumentsOf(OpenMode mode) {
  switch (mode) {
    case OpenMode::kRead:
      return {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING};
    case OpenMode::kWriteShared:
      return {GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, CREATE_ALWAYS};
    case OpenMode::kWriteExclusive:
      return {GENERIC_WRITE, 0, CREATE_ALWAYS};
    case OpenMode::kAppendLog:
      break;
  }
  return {GENERIC_WRITE | FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
          FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS};
}

HANDLE HandleOf(std::intptr_t native) {
  return reinterpret_cast<HANDLE>(native & ~kAppendMark);  // NOLINT: a handle is a number
}

HANDLE HandleOf(const File& file) { return HandleOf(file.native()); }

DWORD LengthOf(std::size_t size) {
  return static_cast<DWORD>(std::min<std::size_t>(size, std::numeric_limits<DWORD>::max()));
}

Status StatusOf(BOOL succeeded) {
  return succeeded != 0 ? Status::Ok() : Status::Fail(::GetLastError());
}

EntryKind KindOf(DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    return EntryKind::kReparsePoint;
  }
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return EntryKind::kDirectory;
  }
  return (attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? EntryKind::kOther : EntryKind::kFile;
}

bool IsFolder(const std::filesystem::path& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

Result<WIN32_FILE_ATTRIBUTE_DATA> DataOf(const std::filesystem::path& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == 0) {
    return Result<WIN32_FILE_ATTRIBUTE_DATA>::Fail(::GetLastError());
  }
  return data;
}

std::uint64_t Join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

Result<bool> MakeOneFolder(const std::filesystem::path& path) {
  if (::CreateDirectoryW(path.c_str(), nullptr) != 0) {
    return true;
  }
  const ErrorCode error = ::GetLastError();
  return IsFolder(path) ? Result<bool>(false) : Result<bool>::Fail(error);
}

// A UTF-16 unit's place in the order of code points, which is the order of UTF-8 bytes.
constexpr unsigned OrderOf(wchar_t unit) {
  constexpr unsigned kFirstSurrogate = 0xD800;
  constexpr unsigned kBehindSurrogates = 0xE000;
  if (unit < kFirstSurrogate) {
    return unit;
  }
  return unit < kBehindSurrogates ? unit + 0x2000U : unit - 0x800U;
}

bool InOrder(const DirectoryEntry& left, const DirectoryEntry& right) {
  const std::wstring& a = left.name.native();
  const std::wstring& b = right.name.native();
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [](wchar_t x, wchar_t y) { return OrderOf(x) < OrderOf(y); });
}

struct CloseSearch {
  void operator()(void* search) const { ::FindClose(search); }
};

class WindowsFiles final : public Files {
 public:
  Result<File> Open(const std::filesystem::path& path, OpenMode mode) override {
    const OpenArguments arguments = ArgumentsOf(mode);
    const HANDLE handle = ::CreateFileW(path.c_str(), arguments.access, arguments.sharing, nullptr,
                                        arguments.disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
      return Result<File>::Fail(::GetLastError());
    }
    const std::intptr_t mark = mode == OpenMode::kAppendLog ? kAppendMark : 0;
    return File(this, reinterpret_cast<std::intptr_t>(handle) | mark);
  }

  Result<std::size_t> Write(File& file, std::string_view bytes) override {
    OVERLAPPED at_end{};
    at_end.Offset = 0xFFFFFFFF;
    at_end.OffsetHigh = 0xFFFFFFFF;
    OVERLAPPED* const place = (file.native() & kAppendMark) != 0 ? &at_end : nullptr;
    DWORD taken = 0;
    if (::WriteFile(HandleOf(file), bytes.data(), LengthOf(bytes.size()), &taken, place) == 0) {
      return Result<std::size_t>::Fail(::GetLastError());
    }
    return std::size_t{taken};
  }

  Result<std::string> Read(File& file, std::uint64_t max_bytes) override {
    return ReadUpTo(max_bytes, ERROR_NOT_ENOUGH_MEMORY, [&file](char* buffer, std::size_t size) {
      DWORD got = 0;
      return ::ReadFile(HandleOf(file), buffer, LengthOf(size), &got, nullptr) == 0
                 ? Result<std::size_t>::Fail(::GetLastError())
                 : Result<std::size_t>(std::size_t{got});
    });
  }

  Result<std::uint64_t> Size(File& file) override {
    LARGE_INTEGER size{};
    if (::GetFileSizeEx(HandleOf(file), &size) == 0) {
      return Result<std::uint64_t>::Fail(::GetLastError());
    }
    return static_cast<std::uint64_t>(size.QuadPart);
  }

  Status SeekToStart(File& file) override {
    return StatusOf(::SetFilePointerEx(HandleOf(file), LARGE_INTEGER{}, nullptr, FILE_BEGIN));
  }

  Status TruncateHere(File& file) override { return StatusOf(::SetEndOfFile(HandleOf(file))); }

  Status Flush(File& file) override { return StatusOf(::FlushFileBuffers(HandleOf(file))); }

  Status Close(File& file) override { return StatusOf(::CloseHandle(HandleOf(file.Release()))); }

  Result<EntryKind> Inspect(const std::filesystem::path& path) override {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
      return KindOf(attributes);
    }
    const ErrorCode error = ::GetLastError();
    return IsNotFound(error) ? Result<EntryKind>(EntryKind::kAbsent)
                             : Result<EntryKind>::Fail(error);
  }

  Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override {
    const Result<WIN32_FILE_ATTRIBUTE_DATA> data = DataOf(path);
    if (!data) {
      return Result<std::uint64_t>::Fail(data.error());
    }
    if (KindOf(data.value().dwFileAttributes) == EntryKind::kDirectory) {
      return Result<std::uint64_t>::Fail(ERROR_ACCESS_DENIED);  // as opening it would give
    }
    return Join(data.value().nFileSizeHigh, data.value().nFileSizeLow);
  }

  Result<std::int64_t> ModifiedAt(const std::filesystem::path& path) override {
    constexpr std::int64_t kUnixEpochIn100Ns = 116'444'736'000'000'000;  // counted from 1601
    const Result<WIN32_FILE_ATTRIBUTE_DATA> data = DataOf(path);
    if (!data) {
      return Result<std::int64_t>::Fail(data.error());
    }
    const FILETIME& changed = data.value().ftLastWriteTime;
    const auto ticks =
        static_cast<std::int64_t>(Join(changed.dwHighDateTime, changed.dwLowDateTime));
    return (ticks - kUnixEpochIn100Ns) / 10'000;
  }

  Status Copy(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return StatusOf(::CopyFileW(from.c_str(), to.c_str(), FALSE));
  }

  Status Rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return StatusOf(::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
  }

  Status RemoveFile(const std::filesystem::path& path) override {
    if (::DeleteFileW(path.c_str()) != 0) {
      return Status::Ok();
    }
    const ErrorCode error = ::GetLastError();
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const bool folder_link = attributes != INVALID_FILE_ATTRIBUTES &&
                             (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                             (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    return folder_link ? StatusOf(::RemoveDirectoryW(path.c_str())) : Status::Fail(error);
  }

  Status RemoveDirectory(const std::filesystem::path& path) override {
    return StatusOf(::RemoveDirectoryW(path.c_str()));
  }

  Result<bool> CreateDirectories(const std::filesystem::path& path) override {
    return MakeWithParents(*this, path, MakeOneFolder);
  }

  Result<std::vector<DirectoryEntry>> List(const std::filesystem::path& path) override {
    using Entries = std::vector<DirectoryEntry>;
    WIN32_FIND_DATAW found{};
    const HANDLE handle = ::FindFirstFileW((path / L"*").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE) {
      const ErrorCode error = ::GetLastError();
      // An empty root folder holds not even ".".
      return error == ERROR_FILE_NOT_FOUND && IsFolder(path) ? Result<Entries>(Entries{})
                                                             : Result<Entries>::Fail(error);
    }
    const std::unique_ptr<void, CloseSearch> search(handle);
    Entries entries;
    do {
      const std::wstring_view name(found.cFileName);
      if (name != L"." && name != L"..") {
        entries.push_back({name, KindOf(found.dwFileAttributes)});
      }
    } while (::FindNextFileW(search.get(), &found) != 0);
    if (const ErrorCode error = ::GetLastError(); error != ERROR_NO_MORE_FILES) {
      return Result<Entries>::Fail(error);
    }
    std::sort(entries.begin(), entries.end(), InOrder);
    return entries;
  }

  bool IsNotFound(ErrorCode error) override {
    switch (error) {
      case ERROR_FILE_NOT_FOUND:
      case ERROR_PATH_NOT_FOUND:
      case ERROR_BAD_NETPATH:
      case ERROR_NETNAME_DELETED:
      case ERROR_INVALID_NAME:
      case ERROR_DIRECTORY:
        return true;
      default:
        return false;
    }
  }
};

}  // namespace

Files& RealFiles() {
  static NoDestructor<WindowsFiles> files;
  return *files;
}

}  // namespace korvane::platform
