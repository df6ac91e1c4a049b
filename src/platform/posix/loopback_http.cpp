#include "platform/loopback_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <span>
#include <string_view>

#include "platform/no_destructor.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/http_answer.h"
#include "platform/posix/wait_deadline.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr std::uint32_t kDefaultTimeoutMs = 30'000;
constexpr int kStatusOk = 200;
// On the stack: the engine's answers are mostly smaller, and a larger one takes more reads.
constexpr std::size_t kReadBytes = 4096;

// Target and agent as bytes. What can't stand in a request's first line is percent-encoded, as the
// other system does it.
std::string BytesOf(std::wstring_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string bytes;
  for (const wchar_t c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7F) {
      bytes += static_cast<char>(byte);
    } else {
      bytes += {'%', kDigits[byte >> 4U], kDigits[byte & 0x0FU]};
    }
  }
  return bytes;
}

std::string RequestFor(std::uint16_t port, const std::wstring& target) {
  return "GET " + BytesOf(target) + " HTTP/1.1\r\nUser-Agent: " + BytesOf(kLoopbackHttpAgent) +
         "\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\nConnection: close\r\n\r\n";
}

class PosixSession final : public LoopbackHttpSession {
 public:
  explicit PosixSession(int timeout_ms)
      : timeout_ms_(timeout_ms > 0 ? static_cast<std::uint32_t>(timeout_ms) : kDefaultTimeoutMs) {}

  std::optional<std::string> Get(std::uint16_t port, const std::wstring& target) override {
    if (!Connect(port) || !Send(RequestFor(port, target))) {
      return std::nullopt;
    }
    HttpAnswer answer;
    std::array<char, kReadBytes> buffer;
    bool more = true;
    while (more && (answer.status() == 0 || answer.status() == kStatusOk)) {
      const std::size_t received = Receive(buffer);
      more = received != 0 && answer.Take(std::string_view(buffer.data(), received));
    }
    return answer.status() == kStatusOk ? std::optional(answer.TakeBody()) : std::nullopt;
  }

 private:
  bool Connect(std::uint16_t port) {
    socket_ = FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!socket_) {
      return false;
    }
    // A connection that is still on its way is waited for where the request is sent.
    return connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
               0 ||
           errno == EINPROGRESS;
  }

  bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent > 0) {
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      } else if (!MayGoOn(POLLOUT)) {
        return false;
      }
    }
    return true;
  }

  // How many bytes have come; 0 when none will, in time.
  std::size_t Receive(std::span<char> buffer) {
    for (;;) {
      const ssize_t received = recv(socket_.get(), buffer.data(), buffer.size(), 0);
      if (received >= 0) {
        return static_cast<std::size_t>(received);
      }
      if (!MayGoOn(POLLIN)) {
        return 0;
      }
    }
  }

  // Behind a call that failed: whether it is worth making again, after a wait where one is due.
  bool MayGoOn(short events) {
    return errno == EINTR || ((errno == EAGAIN || errno == EWOULDBLOCK) && Wait(events));
  }

  // Whether the socket became ready before the time-out.
  bool Wait(short events) {
    const WaitDeadline deadline(timeout_ms_);
    for (;;) {
      pollfd wanted{.fd = socket_.get(), .events = events, .revents = 0};
      const timespec left = deadline.Left();
      const int ready = ppoll(&wanted, 1, &left, nullptr);
      if (ready >= 0 || errno != EINTR) {
        return ready > 0;
      }
    }
  }

  const std::uint32_t timeout_ms_;
  FileDescriptor socket_;
};

class PosixLoopbackHttp final : public LoopbackHttp {
 public:
  std::unique_ptr<LoopbackHttpSession> Open(int timeout_ms) override {
    return std::make_unique<PosixSession>(timeout_ms);
  }
};

}  // namespace

LoopbackHttp& RealLoopbackHttp() {
  static NoDestructor<PosixLoopbackHttp> http;
  return *http;
}

}  // namespace korvane::platform
