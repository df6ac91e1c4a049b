// scripted_server.h: a loopback server that says exactly what a test tells it, byte for byte.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "net/socket.h"
#include "net/workers.h"
#include "platform/mutex.h"

namespace korvane::test {

class ScriptedServer {
 public:
  // Plays one connection, on a thread of its own, once a request's head has come; the connection
  // ends when it returns.
  using Script = std::function<void(net::Socket& client)>;

  explicit ScriptedServer(Script script);
  // Ends all connections.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::uint16_t port() const { return port_; }
  std::string Url(const std::string& target) const;
  // The heads of the requests so far.
  std::vector<std::string> Requests();

 private:
  void ServeConnection(net::Socket& client);

  const Script script_;
  Mutex mutex_;
  std::vector<std::string> requests_ KORVANE_GUARDED_BY(mutex_);
  std::uint16_t port_ = 0;
  net::StopSignal stop_;
  net::Workers workers_;
};

// Sends all of it; a client that has gone is no fault.
void Say(net::Socket& client, const std::string& bytes);
// Waits until the client has closed, or the server is told to end.
void AwaitLeave(net::Socket& client);

}  // namespace korvane::test
