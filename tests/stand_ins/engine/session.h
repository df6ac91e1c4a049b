// session.h: configurations for the engine, and a client for what it opens.
#pragma once

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

namespace korvane::test {

// A proxy on one port, the Clash API on another, and outbounds of every kind: the selector "proxy"
// over "auto" (a urltest group of node_1 and node_2), the nodes, "direct" and "block". The ports
// were free a moment ago.
struct Session {
  Session();

  // The wishes of "experimental.stand_in".
  nlohmann::json& wishes() { return configuration["experimental"]["stand_in"]; }

  std::uint16_t proxy_port;
  std::uint16_t clash_port;
  nlohmann::json configuration;
};

// Status 0 when it was no HTTP answer.
struct Reply {
  int status = 0;
  std::string body;
  // The body as JSON; discarded when it is none.
  nlohmann::json Json() const { return nlohmann::json::parse(body, nullptr, false); }
};

// A GET of the Clash API.
Reply Get(std::uint16_t port, const std::string& target);

}  // namespace korvane::test
