// clash_api.h: the engine's control API on loopback: version, outbounds, selection and delay tests.
//
//   GET  /                          {"hello":"clash"}
//   GET  /version
//   GET  /proxies, /proxies/<tag>   type, name, udp, history; now and all of a group
//   PUT  /proxies/<tag>             {"name":"member"} selects, 204
//   GET  /proxies/<tag>/delay       ?url=..&timeout=ms; {"delay":ms}
//   GET  /group/<tag>/delay         likewise; {"member":ms,...} of those that answered
//
// Errors are {"message":".."}: 400 bad argument, 401 without the secret, 404 no such thing, 503
// failed and 504 timed-out delay test. Tags are percent-encoded. Told answers (clash_script.h) go
// first.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "engine/outbound_dialer.h"
#include "net/http_message.h"

namespace korvane::stand_in {

inline constexpr std::string_view kEngineVersion = "1.12.0-stand-in";

// Refers to its arguments, which outlive it. Any number of connections at once, each on a thread of
// its own.
class ClashApi {
 public:
  ClashApi(OutboundGraph& graph, const OutboundDialer& dialer, const SessionOptions& options,
           std::string secret)
      : graph_(graph), dialer_(dialer), options_(options), secret_(std::move(secret)) {}

  // Serves one request after the other until the client ends or the service is closed.
  void ServeConnection(net::Socket& client);

 private:
  struct Request {
    std::string method;
    std::string path;  // decoded
    std::string query;
    std::string body;
  };
  struct Answer {
    int status = 200;
    std::string body;
  };

  static Answer Message(int status, std::string_view text);
  static Answer NotFound() { return Message(404, "Resource not found"); }

  bool ServeRequest(net::Socket& client, const net::HttpHead& head, std::string body);
  bool Authorised(const net::HttpHead& head) const;
  Answer Route(const Request& request);
  Answer RouteProxy(const Request& request, std::string_view rest);
  Answer RouteGroup(const Request& request, std::string_view rest);
  Answer AllProxies() const;
  Answer Select(const Outbound& outbound, const std::string& body);
  Answer ProxyDelay(const Outbound& outbound, const std::string& query) const;
  Answer GroupDelay(const Outbound& group, const std::string& query) const;

  OutboundGraph& graph_;
  const OutboundDialer& dialer_;
  const SessionOptions& options_;
  const std::string secret_;
};

}  // namespace korvane::stand_in
