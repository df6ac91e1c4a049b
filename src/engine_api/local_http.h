// local_http.h: the one way by which the host talks to the engine's control API.
//
// A blocking GET to 127.0.0.1 with one failure: no value. Nothing is logged, nothing is shared
// between calls, nothing leaves this machine. Any thread but the window's: a call takes up to four
// times its time-out, and longer while a body drips.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace korvane {

struct LoopbackUrl {
  std::uint16_t port = 0;
  std::wstring path;  // with the query; one character per byte
};

// The port and the path of "http://HOST:PORT/PATH?QUERY". Nothing without a port from 1 to 65535;
// the host is never looked at. Throws std::invalid_argument when the port's text doesn't begin with
// a number, and std::out_of_range when that doesn't fit an int.
std::optional<LoopbackUrl> ParseLoopbackUrl(const std::string& url);

// The body of the answer, as far as it came; nothing when it is empty, when the status isn't 200,
// and after every failure, a thrown one included. The time-out is for each phase.
std::optional<std::string> LocalHttpGet(const std::string& url, int timeout_ms);

}  // namespace korvane
