#include "platform/posix/named_event.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/posix/object_folder.h"

namespace korvane::platform {

namespace {

// More than setters that race each other leave in the pipe.
constexpr std::size_t kDrainBytes = 4096;

Result<KernelHandle> OpenPipe(KernelObjects& owner, const std::wstring& name, bool make) {
  Result<std::string> file_name = ObjectFileName(name);
  if (!file_name) {
    return Result<KernelHandle>::Fail(file_name.error());
  }
  Result<ObjectFolder> folder = ObjectFolder::Enter();
  if (!folder) {
    return Result<KernelHandle>::Fail(folder.error());
  }
  Result<FileDescriptor> pipe = folder.value().Open(file_name.value(), S_IFIFO);
  if (!pipe && pipe.error() == kErrorFileNotFound && make) {
    pipe = folder.value().Make(file_name.value(), S_IFIFO);
  }
  if (!pipe) {
    return Result<KernelHandle>::Fail(pipe.error());
  }
  return MakeHandle(owner, std::make_unique<NamedEvent>(file_name.take(), pipe.take()));
}

}  // namespace

Result<KernelHandle> NamedEvent::Create(KernelObjects& owner, const std::wstring& name) {
  return OpenPipe(owner, name, true);
}

Result<KernelHandle> NamedEvent::Open(KernelObjects& owner, const std::wstring& name) {
  return OpenPipe(owner, name, false);
}

NamedEvent::~NamedEvent() {
  if (Result<ObjectFolder> folder = ObjectFolder::Enter()) {
    folder.value().Forget(file_name_, pipe_);
  }
}

Status NamedEvent::Set() {
  pollfd pipe{.fd = pipe_.get(), .events = POLLIN, .revents = 0};
  if (poll(&pipe, 1, 0) == 1) {
    return Status::Ok();
  }
  const char signal = 1;
  ssize_t written = -1;
  do {
    written = write(pipe_.get(), &signal, sizeof(signal));
  } while (written < 0 && errno == EINTR);
  return written == 1 || errno == EAGAIN ? Status::Ok()
                                         : Status::Fail(static_cast<ErrorCode>(errno));
}

bool NamedEvent::TakeSignal() {
  std::array<char, kDrainBytes> signals{};
  ssize_t taken = -1;
  do {
    taken = read(pipe_.get(), signals.data(), signals.size());
  } while (taken < 0 && errno == EINTR);
  return taken > 0;
}

}  // namespace korvane::platform
