#include "net/socket.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <utility>

#include "native.h"

namespace korvane::net {
namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

native::Socket Native(Handle handle) { return static_cast<native::Socket>(handle); }

std::string ErrorText(int error) { return std::system_category().message(error); }

AddressList Resolve(const std::string& host, std::uint16_t port, int flags) {
  native::StartUp();
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    found = nullptr;
  }
  return {found, &::freeaddrinfo};
}

// Without the wait that joins small writes.
void SendAtOnce(native::Socket socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

// A prepared socket of the address's family.
Socket OpenFor(const addrinfo& address, const StopSignal* stop) {
  const native::Socket opened = ::socket(address.ai_family, SOCK_STREAM, IPPROTO_TCP);
  Socket socket(static_cast<Handle>(opened), stop);
  if (!socket.valid() || !native::Prepare(opened)) {
    return {};
  }
  SendAtOnce(opened);
  return socket;
}

int PendingError(const Socket& socket) {
  int error = 0;
  native::Length length = sizeof error;
  ::getsockopt(Native(socket.handle()), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
               &length);
  return error;
}

std::uint16_t BoundPort(const Socket& socket) {
  sockaddr_storage bound{};
  native::Length length = sizeof bound;
  ::getsockname(Native(socket.handle()), reinterpret_cast<sockaddr*>(&bound), &length);
  // The port stands at the same place in the addresses of both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
}

Dialled DialOne(const addrinfo& address, const StopSignal* stop, Deadline deadline) {
  Socket socket = OpenFor(address, stop);
  if (!socket.valid()) {
    return {DialStatus::kRefused, {}, ErrorText(native::LastError())};
  }
  int error = 0;
  if (::connect(Native(socket.handle()), address.ai_addr,
                static_cast<native::Length>(address.ai_addrlen)) != 0) {
    error = native::LastError();
  }
  if (native::WouldBlock(error)) {
    const Interest connected{socket.handle(), false, true};
    switch (Wait({&connected, 1}, stop, deadline)) {
      case WaitStatus::kStopped:
        return {DialStatus::kStopped, {}, "closed"};
      case WaitStatus::kTimedOut:
        return {DialStatus::kTimedOut, {}, "i/o timeout"};
      case WaitStatus::kReady:
        error = PendingError(socket);
    }
  }
  if (error != 0) {
    return {DialStatus::kRefused, {}, ErrorText(error)};
  }
  return {DialStatus::kDone, std::move(socket), {}};
}

}  // namespace

Socket::Socket(Socket&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoHandle)), stop_(other.stop_) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  std::swap(handle_, other.handle_);
  std::swap(stop_, other.stop_);
  return *this;
}

Socket::~Socket() { Close(); }

IoStatus Socket::Receive(std::string& buffer, std::size_t most, Deadline deadline) {
  for (;;) {
    const IoStatus status = ReceiveSome(buffer, most);
    if (status != IoStatus::kWouldBlock) {
      return status;
    }
    const Interest readable{handle_, true, false};
    const WaitStatus waited = Wait({&readable, 1}, stop_, deadline);
    if (waited == WaitStatus::kStopped) {
      return IoStatus::kStopped;
    }
    if (waited == WaitStatus::kTimedOut) {
      return IoStatus::kTimedOut;
    }
  }
}

IoStatus Socket::Send(std::string_view bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const IoStatus status = SendSome(bytes);
    if (status == IoStatus::kDone) {
      continue;
    }
    if (status != IoStatus::kWouldBlock) {
      return status;
    }
    const Interest writable{handle_, false, true};
    const WaitStatus waited = Wait({&writable, 1}, stop_, deadline);
    if (waited == WaitStatus::kStopped) {
      return IoStatus::kStopped;
    }
    if (waited == WaitStatus::kTimedOut) {
      return IoStatus::kTimedOut;
    }
  }
  return IoStatus::kDone;
}

std::optional<char> Socket::Peek(Deadline deadline) {
  for (;;) {
    char byte = 0;
    const auto received = ::recv(Native(handle_), &byte, 1, MSG_PEEK);
    if (received > 0) {
      return byte;
    }
    if (received == 0 || !native::WouldBlock(native::LastError())) {
      return std::nullopt;
    }
    const Interest readable{handle_, true, false};
    if (Wait({&readable, 1}, stop_, deadline) != WaitStatus::kReady) {
      return std::nullopt;
    }
  }
}

IoStatus Socket::ReceiveSome(std::string& buffer, std::size_t most) {
  if (stop_ != nullptr && stop_->raised()) {
    return IoStatus::kStopped;
  }
  std::array<char, std::size_t{16} * 1024> chunk;
  const auto room = static_cast<native::Size>(std::min(most, chunk.size()));
  const auto received = ::recv(Native(handle_), chunk.data(), room, 0);
  if (received == 0) {
    return IoStatus::kEnd;
  }
  if (received < 0) {
    return native::WouldBlock(native::LastError()) ? IoStatus::kWouldBlock : IoStatus::kFailed;
  }
  buffer.append(chunk.data(), static_cast<std::size_t>(received));
  return IoStatus::kDone;
}

IoStatus Socket::SendSome(std::string_view& bytes) {
  if (stop_ != nullptr && stop_->raised()) {
    return IoStatus::kStopped;
  }
  constexpr std::size_t kMostAtOnce = std::size_t{1024} * 1024;
  const auto count = static_cast<native::Size>(std::min(bytes.size(), kMostAtOnce));
  const auto sent = ::send(Native(handle_), bytes.data(), count, native::kSendFlags);
  if (sent < 0) {
    return native::WouldBlock(native::LastError()) ? IoStatus::kWouldBlock : IoStatus::kFailed;
  }
  bytes.remove_prefix(static_cast<std::size_t>(sent));
  return IoStatus::kDone;
}

void Socket::FinishSending() { ::shutdown(Native(handle_), native::kStopSending); }

void Socket::Reset() {
  if (!valid()) {
    return;
  }
  linger at_once{};
  at_once.l_onoff = 1;
  ::setsockopt(Native(handle_), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
               sizeof at_once);
  Close();
}

void Socket::Close() {
  if (valid()) {
    native::Close(Native(std::exchange(handle_, kNoHandle)));
  }
}

std::optional<Listener> Listener::Open(const std::string& address, std::uint16_t port,
                                       const StopSignal* stop, std::string& error) {
  const AddressList list = Resolve(address, port, AI_NUMERICHOST | AI_PASSIVE);
  if (!list) {
    error = "no numeric address";
    return std::nullopt;
  }
  Socket socket = OpenFor(*list, stop);
  const native::Socket opened = Native(socket.handle());
  if (!socket.valid() || !native::OwnPort(opened) ||
      ::bind(opened, list->ai_addr, static_cast<native::Length>(list->ai_addrlen)) != 0 ||
      ::listen(opened, SOMAXCONN) != 0) {
    error = ErrorText(native::LastError());
    return std::nullopt;
  }
  const std::uint16_t bound = BoundPort(socket);
  return Listener(std::move(socket), bound);
}

std::optional<Socket> Listener::Accept() {
  for (;;) {
    const Interest readable{socket_.handle(), true, false};
    if (Wait({&readable, 1}, socket_.stop(), Deadline::Never()) != WaitStatus::kReady) {
      return {};
    }
    const native::Socket accepted = ::accept(Native(socket_.handle()), nullptr, nullptr);
    const int error = native::LastError();
    Socket socket(static_cast<Handle>(accepted), socket_.stop());
    if (socket.valid() && native::Prepare(accepted)) {
      SendAtOnce(accepted);
      return socket;
    }
    // Out of descriptors, most likely: the connection stays queued until one is free again.
    constexpr std::chrono::milliseconds kPause{10};
    if (!native::WouldBlock(error)) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

Dialled Dial(const std::string& host, std::uint16_t port, const StopSignal* stop,
             Deadline deadline) {
  const AddressList list = Resolve(host, port, 0);
  Dialled last{DialStatus::kUnknownHost, {}, "no such host"};
  for (const addrinfo* address = list.get(); address != nullptr; address = address->ai_next) {
    last = DialOne(*address, stop, deadline);
    if (last.status != DialStatus::kRefused) {
      break;
    }
  }
  return last;
}

}  // namespace korvane::net
