// stand_in_options.h: what the stand-in is to do otherwise than a well-behaved engine.
//
// A session's options stand in the configuration's object "experimental.stand_in". README.md
// describes every key.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/call_script.h"
#include "engine/clash_script.h"
#include "net/url.h"

namespace korvane::stand_in {

enum class DialFault { kNone, kRefused, kTimeout };

// How an outbound is to behave when something is sent through it.
struct OutboundOptions {
  std::chrono::milliseconds delay{0};
  DialFault fault = DialFault::kNone;
  // What a delay test of it reports in place of the measured time, once it has succeeded.
  std::optional<int> report_delay_ms;
};

struct SessionOptions {
  CallScript new_service;
  CallScript start_service;
  CallScript close_service;
  // IPv4 connections that a running service holds; each has sent a byte.
  std::vector<net::Authority> hold;
  // Where delay tests go, whatever the request names; empty for what the request names.
  std::string probe_url;
  std::map<std::string, OutboundOptions> outbounds;  // by tag
  std::vector<ClashScript> clash_answers;
};

// The object of a configuration. Throws ConfigurationError.
SessionOptions ReadSessionOptions(const JsonNode& node);

}  // namespace korvane::stand_in
