// native.h (Linux): the few points at which the two systems' sockets differ.
//
// Included by net/*.cpp alone. The names are the same in windows/native.h.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>
#include <system_error>

#include "net/wait.h"

namespace korvane::net::native {

using Socket = int;
using Length = socklen_t;
using Size = std::size_t;

// A peer that has gone is a value here and not a signal that ends the process.
inline constexpr int kSendFlags = MSG_NOSIGNAL;
inline constexpr int kStopSending = SHUT_WR;

inline void StartUp() {}

inline void Close(Socket socket) { ::close(socket); }

inline int LastError() { return errno; }

inline bool WouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == EINPROGRESS;
}

// Non-blocking, and not handed on to programs that the host starts.
inline bool Prepare(Socket socket) {
  return ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK) == 0 &&
         ::fcntl(socket, F_SETFD, FD_CLOEXEC) == 0;
}

// A port whose last connections still linger can be opened again at once.
inline bool OwnPort(Socket listener) {
  const int on = 1;
  return ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0;
}

// Waits until one of them can go on or has failed. Zero when the time ran out or a signal came in
// between, negative on failure.
inline int Wait(std::span<const Interest> interests, int timeout_ms) {
  std::array<pollfd, kMostInterests> items{};
  for (std::size_t i = 0; i < interests.size(); ++i) {
    const Interest& interest = interests[i];
    items[i].fd = static_cast<Socket>(interest.handle);
    if (interest.read) {
      items[i].events = POLLIN;
    }
    if (interest.write) {
      items[i].events = static_cast<short>(items[i].events | POLLOUT);
    }
  }
  const int ready = ::poll(items.data(), interests.size(), timeout_ms);
  return ready < 0 && errno == EINTR ? 0 : ready;
}

}  // namespace korvane::net::native
