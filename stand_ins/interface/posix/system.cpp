#include "interface/system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

// The address and the thread checker define it; a plain build doesn't.
extern "C" [[gnu::weak]] std::size_t
__sanitizer_get_current_allocated_bytes();  // NOLINT: their name

namespace korvane::stand_in {
namespace {

InputSource::Kind KindOf(int descriptor) {
  struct stat facts {};
  if (fstat(descriptor, &facts) != 0) {
    return InputSource::Kind::kNone;
  }
  return S_ISREG(facts.st_mode) ? InputSource::Kind::kFile : InputSource::Kind::kStream;
}

// A reader that has gone away must not end the host: SIGPIPE is held back for one write, and taken
// out of the way when the write raised it.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~PipeSignalHeld() {
    const timespec now{};
    while (sigtimedwait(&pipe_, nullptr, &now) == -1 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

 private:
  sigset_t pipe_{};
  sigset_t before_{};
};

}  // namespace

Holdings HoldingsOfProcess() {
  if (__sanitizer_get_current_allocated_bytes == nullptr) {
    return {};
  }
  return {.heap_bytes = __sanitizer_get_current_allocated_bytes(), .handles = {}};
}

std::optional<std::string> Environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody here sets any
  if (value == nullptr || *value == '\0') {
    return std::nullopt;
  }
  return value;
}

bool IsTakeoverSuccessor() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string arguments{std::istreambuf_iterator<char>(file), {}};
  return arguments.find(std::string("\0--takeover-token=", 18)) != std::string::npos;
}

void EndProcess(int code) { _exit(code); }

void CrashProcess() {
  kill(getpid(), SIGKILL);
  for (;;) {
    pause();
  }
}

InputSource::InputSource() : handle_(STDIN_FILENO), kind_(Kind::kNone) {
  const auto path = Environment("KORVANE_CONSOLE_IN");
  if (path) {
    handle_ = open(path->c_str(), O_RDONLY | O_CLOEXEC);
  }
  kind_ = path && handle_ < 0 ? Kind::kMissing : KindOf(static_cast<int>(handle_));
}

InputSource::~InputSource() {
  if (handle_ > STDIN_FILENO) {
    close(static_cast<int>(handle_));
  }
}

std::size_t InputSource::Read(char* buffer, std::size_t size) {
  for (;;) {
    const auto count = read(static_cast<int>(handle_), buffer, size);
    if (count >= 0) {
      return static_cast<std::size_t>(count);
    }
    if (errno != EINTR) {
      return 0;
    }
  }
}

void OutputSink::Write(std::string_view bytes) {
  if (!handle_) {
    const auto path = Environment("KORVANE_CONSOLE_OUT");
    const int how = IsTakeoverSuccessor() ? O_APPEND : O_APPEND | O_TRUNC;
    handle_ =
        path ? open(path->c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | how, 0600) : STDOUT_FILENO;
  }
  const PipeSignalHeld held;
  while (!bytes.empty()) {
    const auto count = write(static_cast<int>(*handle_), bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) {
      return;
    }
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }
}

}  // namespace korvane::stand_in
