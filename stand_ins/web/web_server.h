// web_server.h: a small web server on loopback, to have something to fetch through the proxy.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "net/http_message.h"
#include "net/workers.h"

namespace korvane::stand_in {

struct WebRequest {
  std::string method;
  std::string target;
  std::string body;
  net::HttpHead head;
};

struct WebAnswer {
  int status = 200;
  std::string content_type = "text/plain";
  std::string body;
};

// Serves from its making to its destruction, each connection on a thread of its own, one request
// after the other for as long as the client likes. A silent connection is kept.
class WebServer {
 public:
  // Called on the connection's thread; several at once.
  using Handler = std::function<WebAnswer(const WebRequest&)>;

  // On 127.0.0.1; port 0 lets the system choose one. Throws std::runtime_error when it is taken.
  explicit WebServer(std::uint16_t port, Handler handler = DefaultPages);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  std::uint16_t port() const { return port_; }
  // "http://127.0.0.1:PORT" and the path.
  std::string Url(const std::string& path) const;
  // How many connections and whole requests have come so far.
  int connections() const { return connections_; }
  int requests() const { return requests_; }

  // "/" is a page, "/generate_204" answers 204, "/bytes/N" N bytes (at most 200 MB), a POST its own
  // body; 404 otherwise.
  static WebAnswer DefaultPages(const WebRequest& request);

 private:
  void ServeConnection(net::Socket& socket);

  Handler handler_;
  std::atomic<int> connections_{0};
  std::atomic<int> requests_{0};
  std::uint16_t port_ = 0;
  net::StopSignal stop_;
  net::Workers workers_;
};

}  // namespace korvane::stand_in
