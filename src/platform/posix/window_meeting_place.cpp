#include "platform/posix/window_meeting_place.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/posix/runtime_folder.h"

namespace korvane::platform {

namespace {

constexpr const char* kFolderName = "windows";
constexpr timeval kPeerWait = {.tv_sec = 5, .tv_usec = 0};

ErrorCode LastError() { return static_cast<ErrorCode>(errno); }

template <typename Value>
Result<Value> Failed() {
  return Result<Value>::Fail(LastError());
}

// The lock on the folder, for as long as it lives. The folder's descriptor is this thread's own.
class FolderLock {
 public:
  explicit FolderLock(const FileDescriptor& folder) : folder_(folder.get()) {
    while (flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FolderLock() { flock(folder_, LOCK_UN); }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int folder_;
};

std::string EntryName(std::uint32_t process) { return std::to_string(process); }

// The address of an entry by way of the open folder: a path of any length fits into it.
sockaddr_un EntryAddress(const FileDescriptor& folder, std::uint32_t process) {
  const std::string path =
      "/proc/self/fd/" + std::to_string(folder.get()) + "/" + EntryName(process);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// 0 for a name that is no process id.
std::uint32_t ProcessOfEntry(std::string_view name) {
  std::uint32_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  return error == std::errc() && end == name.data() + name.size() ? process : 0;
}

std::uint32_t ThisProcess() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace

Result<WindowMeetingPlace> WindowMeetingPlace::Open() {
  const Result<std::filesystem::path> runtime = RuntimeFolder();
  if (!runtime) {
    return Result<WindowMeetingPlace>::Fail(runtime.error());
  }
  const std::filesystem::path path = runtime.value() / kFolderName;
  if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return Failed<WindowMeetingPlace>();
  }
  FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) {
    return Failed<WindowMeetingPlace>();
  }
  return WindowMeetingPlace(std::move(folder));
}

Result<FileDescriptor> WindowMeetingPlace::Listen() {
  FileDescriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener) {
    return Failed<FileDescriptor>();
  }
  const sockaddr_un address = EntryAddress(folder_, ThisProcess());
  const FolderLock lock(folder_);
  unlinkat(folder_.get(), EntryName(ThisProcess()).c_str(), 0);
  if (bind(listener.get(), Generic(address), sizeof(address)) != 0 ||
      listen(listener.get(), SOMAXCONN) != 0) {
    return Failed<FileDescriptor>();
  }
  return listener;
}

void WindowMeetingPlace::Remove() {
  const FolderLock lock(folder_);
  unlinkat(folder_.get(), EntryName(ThisProcess()).c_str(), 0);
}

Result<FileDescriptor> WindowMeetingPlace::Connect(std::uint32_t process) {
  Result<FileDescriptor> connection = TryConnect(process);
  if (!connection && connection.error() == ECONNREFUSED) {
    RemoveIfDead(process);
  }
  return connection;
}

Result<FileDescriptor> WindowMeetingPlace::TryConnect(std::uint32_t process) {
  FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!connection) {
    return Failed<FileDescriptor>();
  }
  setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &kPeerWait, sizeof(kPeerWait));
  setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &kPeerWait, sizeof(kPeerWait));
  const sockaddr_un address = EntryAddress(folder_, process);
  if (connect(connection.get(), Generic(address), sizeof(address)) != 0) {
    return Failed<FileDescriptor>();
  }
  return connection;
}

// Asked once more under the lock: a process that has just made its entry doesn't listen yet.
void WindowMeetingPlace::RemoveIfDead(std::uint32_t process) {
  const FolderLock lock(folder_);
  const Result<FileDescriptor> connection = TryConnect(process);
  if (!connection && connection.error() == ECONNREFUSED) {
    unlinkat(folder_.get(), EntryName(process).c_str(), 0);
  }
}

std::vector<std::uint32_t> WindowMeetingPlace::OtherProcesses() {
  std::vector<std::uint32_t> processes;
  const std::string path = "/proc/self/fd/" + std::to_string(folder_.get());
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(path.c_str()), &closedir);
  if (entries == nullptr) {
    return processes;
  }
  // Each thread reads a stream of its own.
  while (const dirent* entry = readdir(entries.get())) {  // NOLINT(concurrency-mt-unsafe)
    const std::uint32_t process = ProcessOfEntry(entry->d_name);
    if (process != 0 && process != ThisProcess()) {
      processes.push_back(process);
    }
  }
  std::sort(processes.begin(), processes.end());
  return processes;
}

}  // namespace korvane::platform
