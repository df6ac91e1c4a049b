#include "platform/posix/object_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/posix/kernel_object.h"
#include "platform/posix/runtime_folder.h"
#include "platform/posix/wide_bytes.h"

namespace korvane::platform {

namespace {

struct NameSpace {
  std::wstring_view prefix;
  std::string_view file_prefix;
};
constexpr std::array<NameSpace, 2> kNameSpaces = {
    NameSpace{L"Local\\", "local."},
    NameSpace{L"Global\\", "global."},
};

template <typename T>
Result<T> Failed() {
  return Result<T>::Fail(static_cast<ErrorCode>(errno));
}

bool IsPlain(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '.' || character == '-' ||
         character == '_';
}

std::string Encode(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char character : bytes) {
    if (IsPlain(character)) {
      encoded += character;
    } else {
      const auto byte = static_cast<std::uint8_t>(character);
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
  }
  return encoded;
}

bool Lock(const FileDescriptor& file, int operation) {
  int result = -1;
  do {
    result = flock(file.get(), operation);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool IsOfKind(const FileDescriptor& file, mode_t kind) {
  struct stat status {};
  return fstat(file.get(), &status) == 0 && (status.st_mode & S_IFMT) == kind;
}

FileDescriptor OpenIn(const FileDescriptor& folder, const std::string& file) {
  // Reading and writing, also for a pipe: then neither opening nor writing waits for a peer.
  return FileDescriptor(
      openat(folder.get(), file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
}

}  // namespace

Result<std::string> ObjectFileName(std::wstring_view name) {
  NameSpace space = kNameSpaces.front();
  for (const NameSpace& candidate : kNameSpaces) {
    if (name.starts_with(candidate.prefix)) {
      space = candidate;
      name.remove_prefix(candidate.prefix.size());
      break;
    }
  }
  if (name.empty() || name.find(L'\\') != std::wstring_view::npos) {
    return Result<std::string>::Fail(kErrorPathNotFound);
  }
  return std::string(space.file_prefix) + Encode(BytesFromWide(name));
}

Result<ObjectFolder> ObjectFolder::Enter() {
  const Result<std::filesystem::path> runtime = RuntimeFolder();
  if (!runtime) {
    return Result<ObjectFolder>::Fail(runtime.error());
  }
  const std::filesystem::path path = runtime.value() / "objects";
  if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return Failed<ObjectFolder>();
  }
  FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder || !Lock(folder, LOCK_EX)) {
    return Failed<ObjectFolder>();
  }
  return ObjectFolder(std::move(folder));
}

Result<FileDescriptor> ObjectFolder::Open(const std::string& file, mode_t kind) {
  FileDescriptor object = OpenIn(folder_, file);
  if (!object) {
    return Failed<FileDescriptor>();  // ENOENT is kErrorFileNotFound
  }
  if (Lock(object, LOCK_EX | LOCK_NB)) {
    unlinkat(folder_.get(), file.c_str(), 0);
    return Result<FileDescriptor>::Fail(kErrorFileNotFound);
  }
  if (errno != EWOULDBLOCK || !Lock(object, LOCK_SH)) {
    return Failed<FileDescriptor>();
  }
  if (!IsOfKind(object, kind)) {
    return Result<FileDescriptor>::Fail(kErrorInvalidHandle);
  }
  return object;
}

Result<FileDescriptor> ObjectFolder::Make(const std::string& file, mode_t kind) {
  if (mknodat(folder_.get(), file.c_str(), kind | S_IRUSR | S_IWUSR, 0) != 0) {
    return Failed<FileDescriptor>();
  }
  FileDescriptor object = OpenIn(folder_, file);
  if (!object || !Lock(object, LOCK_SH)) {
    return Failed<FileDescriptor>();
  }
  return object;
}

void ObjectFolder::Forget(const std::string& file, const FileDescriptor& object) {
  if (Lock(object, LOCK_EX | LOCK_NB)) {
    unlinkat(folder_.get(), file.c_str(), 0);
  }
}

}  // namespace korvane::platform
