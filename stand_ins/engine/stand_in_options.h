// stand_in_options.h: what the stand-in is to do otherwise than a well-behaved engine.
//
// One session's options stand in the configuration's object "experimental.stand_in"; a file beside
// the library, "sing-box.stand_in.json", gives what holds before any configuration is known, and
// the defaults of the sessions. README.md describes every key.
#pragma once

#include <chrono>
#include <filesystem>
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
  // A close that was told to fail still gives everything back.
  bool release_on_failed_close = false;
  // A line for the standard error that the engine sees, written at each call; empty for none.
  std::string noise;
  bool every_tun_name_taken = false;
  std::vector<std::string> tun_names_taken;
  // IPv4 connections that a running service holds; each has sent a byte.
  std::vector<net::Authority> hold;
  // Where delay tests go, whatever the request names; empty for what the request names.
  std::string probe_url;
  std::map<std::string, OutboundOptions> outbounds;  // by tag
  std::vector<ClashScript> clash_answers;
  // A group's failed members stand in the answer with 0 instead of being left out.
  bool zero_for_failed_members = false;
};

struct LibraryOptions {
  SessionOptions session;
  CallScript get_version;
  CallScript get_last_error;
  CallScript free_string;
  CallScript set_crash_output;
  // Any bytes; nothing for a null result.
  std::optional<std::string> version = "1.12.0-stand-in";
};

// The object of a configuration, over the given defaults. Throws ConfigurationError.
SessionOptions ReadSessionOptions(const JsonNode& node, SessionOptions defaults);

// The file; the defaults when there is none. Throws ConfigurationError when it can't be used.
LibraryOptions ReadLibraryOptions(const std::filesystem::path& file);

}  // namespace korvane::stand_in
