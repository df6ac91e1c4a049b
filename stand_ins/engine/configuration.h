// configuration.h: what the stand-in takes from a sing-box configuration.
//
// Inbounds, outbounds, the final route and the Clash API; logging, DNS and routing rules are
// accepted and have no effect.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/stand_in_options.h"

namespace korvane::stand_in {

struct Inbound {
  std::string type;  // "mixed", "http", "socks" or "tun"
  std::string tag;
  net::Authority listen;  // all but "tun"; a loopback address, port 0 for any free one
};

struct Outbound {
  std::string tag;
  std::string type;
  std::vector<std::string> members;  // of a selector or urltest group
  std::string default_member;        // of a selector; its first member unless the text names one
};

struct ClashController {
  net::Authority listen;
  std::string secret;
};

struct Configuration {
  std::vector<Inbound> inbounds;
  std::vector<Outbound> outbounds;
  std::string final_outbound;  // where traffic goes; empty for straight out
  std::optional<ClashController> clash;
  SessionOptions options;
};

// Reads a configuration text. Throws ConfigurationError with the text for the last error: on bad
// JSON, on fields that no engine would take, and on outbounds that don't fit together.
Configuration ReadConfiguration(const std::string& text);

}  // namespace korvane::stand_in
