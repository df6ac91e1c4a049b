#include "platform/error_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/mutex.h"
#include "platform/no_destructor.h"
#include "platform/posix/error_stream_for_children.h"
#include "platform/posix/file_descriptor.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

// Keeps a broken pipe from ending the process while it lives, on the calling thread alone. Nothing
// process-wide changes: children and the engine's own handlers see the usual signal.
class NoBrokenPipeSignal {
 public:
  NoBrokenPipeSignal() {
    ::sigemptyset(&broken_pipe_);
    ::sigaddset(&broken_pipe_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    was_pending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &broken_pipe_, &previous_);
  }
  ~NoBrokenPipeSignal() {
    if (!was_pending_) {
      const timespec no_wait{};
      while (::sigtimedwait(&broken_pipe_, nullptr, &no_wait) < 0 && errno == EINTR) {
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
  NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

 private:
  sigset_t broken_pipe_{};
  sigset_t previous_{};
  bool was_pending_ = false;
};

// Whether writing may go on after this failure. A stream that somebody made non-blocking is waited
// for, so that no line is cut.
bool CanGoOn(int descriptor, int error) {
  if (error == EAGAIN) {
    pollfd writable{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return ::poll(&writable, 1, -1) >= 0 || errno == EINTR;
  }
  return error == EINTR;
}

void WriteAll(int descriptor, std::string_view text) {
  const NoBrokenPipeSignal guard;
  while (!text.empty()) {
    const ssize_t taken = ::write(descriptor, text.data(), text.size());
    if (taken >= 0) {
      text.remove_prefix(static_cast<std::size_t>(taken));
    } else if (!CanGoOn(descriptor, errno)) {
      return;
    }
  }
}

class PosixErrorStream final : public ErrorStream {
 public:
  void WriteLine(std::string_view utf8) override {
    std::string line(utf8);
    line += '\n';
    MutexLock lock(mutex_);
    WriteAll(Descriptor(), line);
  }

  int DescriptorForChildren() KORVANE_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return Descriptor();
  }

  Status SilenceStandardError() override {
    MutexLock lock(mutex_);
    if (silenced_) {
      return Status::Ok();
    }
    FileDescriptor kept(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!kept && errno != EBADF) {
      return Status::Fail(static_cast<ErrorCode>(errno));
    }
    FileDescriptor null_device(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (!null_device || ::dup2(null_device.get(), STDERR_FILENO) < 0) {
      return Status::Fail(static_cast<ErrorCode>(errno));
    }
    if (null_device.get() == STDERR_FILENO) {  // the process was started without a stream
      ::fcntl(STDERR_FILENO, F_SETFD, 0);
      kept = std::move(null_device);
    }
    kept_ = std::move(kept);
    silenced_ = true;
    return Status::Ok();
  }

  void WriteToDebugger(std::string_view /*utf8*/) override {}

 private:
  int Descriptor() KORVANE_REQUIRES(mutex_) { return silenced_ ? kept_.get() : STDERR_FILENO; }

  Mutex mutex_;
  bool silenced_ KORVANE_GUARDED_BY(mutex_) = false;
  // Once silenced: the stream that the process was started with.
  FileDescriptor kept_ KORVANE_GUARDED_BY(mutex_);
};

PosixErrorStream& Stream() {
  static NoDestructor<PosixErrorStream> stream;
  return *stream;
}

}  // namespace

ErrorStream& RealErrorStream() { return Stream(); }

int ErrorStreamForChildren() { return Stream().DescriptorForChildren(); }

}  // namespace korvane::platform
