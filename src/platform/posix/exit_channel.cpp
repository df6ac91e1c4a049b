#include "platform/posix/exit_channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace korvane::platform {

namespace {

// The number that the whole text is.
std::optional<int> NumberOf(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole ? std::optional<int>(number) : std::nullopt;
}

// The descriptor that the parent named; nothing when it is not this process's own.
std::optional<int> InheritedDescriptor() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the host changes the environment
  const char* value = std::getenv(kExitChannelVariable);
  if (value == nullptr) {
    return std::nullopt;
  }
  const std::string_view text = value;
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || NumberOf(text.substr(0, colon)) != getppid()) {
    return std::nullopt;
  }
  return NumberOf(text.substr(colon + 1));
}

}  // namespace

Result<ExitChannel> MakeExitChannel() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return Result<ExitChannel>::Fail(static_cast<ErrorCode>(errno));
  }
  ExitChannel channel{.launcher = FileDescriptor(ends[0]),
                      .child = FileDescriptor(ends[1]),
                      .variable = std::to_string(getpid()) + ":" + std::to_string(ends[1])};
  return channel;
}

std::optional<std::uint32_t> ReadExitCode(const FileDescriptor& launcher) {
  std::uint32_t code = 0;
  const ssize_t size = recv(launcher.get(), &code, sizeof(code), MSG_DONTWAIT | MSG_PEEK);
  return size == sizeof(code) ? std::optional<std::uint32_t>(code) : std::nullopt;
}

void ReportExitCode(std::uint32_t code) {
  if (const std::optional<int> descriptor = InheritedDescriptor()) {
    send(*descriptor, &code, sizeof(code), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
}

}  // namespace korvane::platform
