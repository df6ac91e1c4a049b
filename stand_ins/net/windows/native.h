// native.h (Windows): the few points at which the two systems' sockets differ.
//
// Included by net/*.cpp alone. The names are the same in posix/native.h.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include <span>
#include <system_error>

#include "net/wait.h"

namespace korvane::net::native {

using Socket = SOCKET;
using Length = int;
using Size = int;

inline constexpr int kSendFlags = 0;
inline constexpr int kStopSending = SD_SEND;

// Winsock stays up to the end of the process: the library is never unloaded.
inline void StartUp() {
  static const int started = [] {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 2), &data);
  }();
  static_cast<void>(started);
}

inline void Close(Socket socket) { ::closesocket(socket); }

inline int LastError() { return ::WSAGetLastError(); }

inline bool WouldBlock(int error) {
  return error == WSAEWOULDBLOCK || error == WSAEINTR || error == WSAEINPROGRESS;
}

// Non-blocking, and not handed on to programs that the host starts.
inline bool Prepare(Socket socket) {
  u_long on = 1;
  ::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  return ::ioctlsocket(socket, static_cast<long>(FIONBIO), &on) == 0;
}

// Without this any other program could open the same port beside us.
inline bool OwnPort(Socket listener) {
  const BOOL on = TRUE;
  return ::setsockopt(listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on),
                      sizeof on) == 0;
}

// Waits until one of them can go on or has failed. Zero when the time ran out, negative on failure.
// select() and not WSAPoll(), which on older systems never reports a refused connection.
inline int Wait(std::span<const Interest> interests, int timeout_ms) {
  fd_set readable{};
  fd_set writable{};
  fd_set failed{};
  for (const Interest& interest : interests) {
    const auto socket = static_cast<Socket>(interest.handle);
    if (interest.read) {
      FD_SET(socket, &readable);
    }
    if (interest.write) {
      FD_SET(socket, &writable);
    }
    if (interest.write) {
      FD_SET(socket, &failed);
    }
  }
  timeval limit{timeout_ms / 1000, (timeout_ms % 1000) * 1000};
  return ::select(0, &readable, &writable, &failed, timeout_ms < 0 ? nullptr : &limit);
}

}  // namespace korvane::net::native
