#include "platform/loopback_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string_view>

#include "platform/no_destructor.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/http_answer.h"
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
    socket_ = FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // An interrupted connect goes on, and the send waits for it.
    return socket_ && BoundWaits() &&
           (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
                0 ||
            errno == EINTR);
  }

  // Bounds each wait for the peer; one for sending is also one for the connection.
  bool BoundWaits() {
    const timeval bound{.tv_sec = timeout_ms_ / 1000, .tv_usec = timeout_ms_ % 1000 * 1000L};
    return setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof(bound)) == 0 &&
           setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof(bound)) == 0;
  }

  bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno != EINTR) {
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
  }

  // How many bytes have come; 0 when none will, in time.
  std::size_t Receive(std::span<char> buffer) {
    ssize_t received = -1;
    do {
      received = recv(socket_.get(), buffer.data(), buffer.size(), 0);
    } while (received < 0 && errno == EINTR);
    return static_cast<std::size_t>(std::max<ssize_t>(received, 0));
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
