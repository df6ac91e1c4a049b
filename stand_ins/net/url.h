// url.h: the parts of a plain http URL and of a request's target.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::net {

// A host, without the brackets of an IPv6 literal, and a port.
struct Authority {
  std::string host;
  std::uint16_t port = 0;

  // As it stands in a Host field or a CONNECT line.
  std::string Text() const;
};

struct Url {
  std::string scheme;
  Authority authority;
  std::string target;  // path and query; at least "/"
};

// "host", "host:port", "[v6]:port". Nothing for an empty host or a port beyond 1 to 65535. Port 0
// as `default_port` means that the text must name one.
std::optional<Authority> ParseAuthority(std::string_view text, std::uint16_t default_port);

// "scheme://authority/target"; port 80 unless the URL names one.
std::optional<Url> ParseUrl(std::string_view text);

// "%41" to "A". A percent sign without two digits behind it stays.
std::string PercentDecode(std::string_view text);

// The decoded value of a key in "a=1&b=2"; nothing when it is absent. '+' is a blank.
std::optional<std::string> QueryValue(std::string_view query, std::string_view key);

}  // namespace korvane::net
