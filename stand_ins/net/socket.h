// socket.h: TCP sockets for loopback servers and their clients, alike on both systems.
//
// A socket is non-blocking underneath; its waiting operations end with kStopped when the signal
// that it was made with is raised. One thread uses a socket at a time. A signal outlives its
// sockets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "net/wait.h"

namespace korvane::net {

enum class IoStatus {
  kDone,
  kEnd,         // the peer will send nothing more
  kWouldBlock,  // only the operations that never wait
  kTimedOut,
  kStopped,
  kFailed,
};

// Owns one connected socket. Move-only.
class Socket {
 public:
  Socket() = default;
  Socket(Handle handle, const StopSignal* stop) : handle_(handle), stop_(stop) {}
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  ~Socket();

  bool valid() const { return handle_ != kNoHandle; }
  Handle handle() const { return handle_; }
  const StopSignal* stop() const { return stop_; }

  // Appends at least one byte and at most `most` to the buffer, or tells why not.
  IoStatus Receive(std::string& buffer, std::size_t most, Deadline deadline);
  // kDone when all of it is sent.
  IoStatus Send(std::string_view bytes, Deadline deadline);

  // The next byte, which stays to be received; nothing when there will be none.
  std::optional<char> Peek(Deadline deadline);

  // The same as Receive and Send without a wait. SendSome takes what was sent off the front of the
  // view.
  IoStatus ReceiveSome(std::string& buffer, std::size_t most);
  IoStatus SendSome(std::string_view& bytes);

  // Tells the peer that nothing more will come; receiving goes on.
  void FinishSending();
  // Closes with a reset, which the peer sees as a broken connection.
  void Reset();
  void Close();

 private:
  Handle handle_ = kNoHandle;
  const StopSignal* stop_ = nullptr;
};

// Owns one listening socket. Move-only.
class Listener {
 public:
  // Opens a port of a numeric loopback address; port 0 lets the system choose one. On failure the
  // result is empty and `error` holds the system's words.
  static std::optional<Listener> Open(const std::string& address, std::uint16_t port,
                                      const StopSignal* stop, std::string& error);

  std::uint16_t port() const { return port_; }
  // The next connection; nothing once the signal is raised.
  std::optional<Socket> Accept();

 private:
  Listener(Socket socket, std::uint16_t port) : socket_(std::move(socket)), port_(port) {}

  Socket socket_;
  std::uint16_t port_;
};

enum class DialStatus { kDone, kUnknownHost, kRefused, kTimedOut, kStopped };

struct Dialled {
  DialStatus status = DialStatus::kRefused;
  Socket socket;      // valid with kDone alone
  std::string error;  // the system's words otherwise
};

// Connects to a name or a numeric address, trying each of its addresses in turn. A name look-up by
// the system can't be cut short; everything after it can.
Dialled Dial(const std::string& host, std::uint16_t port, const StopSignal* stop,
             Deadline deadline);

}  // namespace korvane::net
