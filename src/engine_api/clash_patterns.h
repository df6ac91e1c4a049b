// clash_patterns.h: the expressions by which configuration and API answers are read.
//
// Texts are never parsed as JSON here: one field at a time is searched for, wherever it stands, and
// the first match counts. Each function is one ECMAScript expression over bytes, which is its
// definition; it is matched by hand because the library's engine recurses for each character and
// would overflow the stack on a long answer. Linear in the text, constant in stack. Pure; any
// thread. What is returned points into the text.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace korvane {

// "external_controller"\s*:\s*"127\.0\.0\.1:(\d+)"
std::optional<std::string_view> MatchControllerPort(std::string_view text);

// "listen_port"\s*:\s*(\d+)
std::optional<std::string_view> MatchListenPort(std::string_view text);

// "KEY"\s*:\s*(-?\d+)  with the key taken literally. A key that holds a quote may cost more than
// linear time; no caller has one.
std::optional<std::string_view> MatchInt(std::string_view text, std::string_view key);

// "KEY"\s*:\s*"([^"]*)"  likewise
std::optional<std::string_view> MatchString(std::string_view text, std::string_view key);

struct DelayMatch {
  std::string_view key;
  std::string_view digits;
  std::size_t end = 0;  // behind the match
};

// "([^"]+)"\s*:\s*(\d+)  from this position on
std::optional<DelayMatch> MatchDelay(std::string_view text, std::size_t from);

// "(node_\d+)"\s*:\s*(\d+)  likewise
std::optional<DelayMatch> MatchNodeDelay(std::string_view text, std::size_t from);

}  // namespace korvane
