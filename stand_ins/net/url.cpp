#include "net/url.h"

#include <algorithm>
#include <charconv>

namespace korvane::net {
namespace {

std::optional<std::uint16_t> ParsePort(std::string_view text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) {
    return std::nullopt;
  }
  return port;
}

std::optional<char> HexByte(std::string_view digits) {
  unsigned value = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || error != std::errc() || stop != end) {
    return std::nullopt;
  }
  return static_cast<char>(value);
}

}  // namespace

std::string Authority::Text() const {
  const bool v6 = host.find(':') != std::string::npos;
  return (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::optional<Authority> ParseAuthority(std::string_view text, std::uint16_t default_port) {
  std::string_view host = text.substr(0, text.find(':'));
  std::string_view rest = text.substr(host.size());
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  }
  if (host.empty()) {
    return std::nullopt;
  }
  if (rest.empty()) {
    if (default_port == 0) {
      return std::nullopt;
    }
    return Authority{std::string(host), default_port};
  }
  const auto port = rest.starts_with(':') ? ParsePort(rest.substr(1)) : std::nullopt;
  if (!port) {
    return std::nullopt;
  }
  return Authority{std::string(host), *port};
}

std::optional<Url> ParseUrl(std::string_view text) {
  constexpr std::string_view kMark = "://";
  constexpr std::uint16_t kHttpPort = 80;
  const std::size_t mark = text.find(kMark);
  if (mark == std::string_view::npos || mark == 0) {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(mark + kMark.size());
  const std::size_t end = std::min(rest.find_first_of("/?#"), rest.size());
  auto authority = ParseAuthority(rest.substr(0, end), kHttpPort);
  if (!authority) {
    return std::nullopt;
  }
  std::string target(rest.substr(end, rest.find('#') - end));
  if (!target.starts_with('/')) {
    target.insert(0, 1, '/');
  }
  return Url{std::string(text.substr(0, mark)), std::move(*authority), std::move(target)};
}

std::string PercentDecode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = text[i] == '%' ? HexByte(text.substr(i + 1, 2)) : std::nullopt;
    decoded += byte.value_or(text[i]);
    if (byte) {
      i += 2;
    }
  }
  return decoded;
}

std::optional<std::string> QueryValue(std::string_view query, std::string_view key) {
  while (!query.empty()) {
    const std::string_view pair = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(pair.size() + 1, query.size()));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    if (pair.substr(0, equals) != key) {
      continue;
    }
    std::string value(pair.substr(std::min(equals + 1, pair.size())));
    std::ranges::replace(value, '+', ' ');
    return PercentDecode(value);
  }
  return std::nullopt;
}

}  // namespace korvane::net
