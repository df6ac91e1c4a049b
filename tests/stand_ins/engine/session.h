// session.h: configurations for the engine, and clients for what it opens.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "net/http_get.h"

namespace korvane::test {

// A loopback port that was free a moment ago.
std::uint16_t FreePort();

// A proxy on one port, the Clash API on another, and outbounds of every kind: the selector "proxy"
// over "auto" (a urltest group of node_1 and node_2), the nodes, "direct" and "block".
struct Session {
  Session();

  // The wishes of "experimental.stand_in".
  nlohmann::json& wishes() { return configuration["experimental"]["stand_in"]; }
  // Makes "proxy" begin with this member.
  void BeginWith(const std::string& member);

  std::uint16_t proxy_port;
  std::uint16_t clash_port;
  nlohmann::json configuration;
};

// What came back for the bytes: a head and a body. Status 0 when it was no HTTP answer.
struct Reply {
  int status = 0;
  net::HttpHead head;
  std::string body;
  // The body as JSON; discarded when it is none.
  nlohmann::json Json() const { return nlohmann::json::parse(body, nullptr, false); }
};

// Sends the bytes to a loopback port and reads one answer, as far as it comes.
Reply Exchange(std::uint16_t port, const std::string& request);

// A request to the Clash API.
Reply Ask(std::uint16_t port, const std::string& method, const std::string& target,
          const std::string& body = {}, const std::string& fields = {});
Reply Get(std::uint16_t port, const std::string& target);
// "/proxies/TAG/delay" and "/group/TAG/delay" with a URL and a time-out.
std::string DelayTarget(const std::string& kind, const std::string& tag, const std::string& url,
                        int timeout_ms);

// The status of a page that is fetched through the HTTP proxy; 0 when there was no answer.
int FetchThrough(std::uint16_t proxy_port, const std::string& url);

// A connection to a loopback port; a failure of the test when there is none.
net::Socket Connect(std::uint16_t port);
// Everything that comes up to the end of the connection.
std::string ReadToEnd(net::Socket& socket);
// Exactly so many bytes, or fewer when the connection ends first.
std::string ReadUpTo(net::Socket& socket, std::size_t count);
void SendAll(net::Socket& socket, const std::string& bytes);

// Long enough for anything that is to happen; a test that waits so long has failed.
net::Deadline Patience();

}  // namespace korvane::test
