#include "engine_api/local_http.h"

#include <limits>
#include <memory>
#include <string_view>

#include "platform/os.h"

namespace korvane {

namespace {

constexpr std::string_view kScheme = "http://";

std::wstring Widened(std::string_view bytes) {
  std::wstring wide;
  wide.reserve(bytes.size());
  for (const char byte : bytes) {
    wide += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  }
  return wide;
}

std::optional<std::string> Get(const std::string& url, int timeout_ms) {
  const auto session = platform::os().loopback_http->Open(timeout_ms);
  if (session == nullptr) {
    return std::nullopt;
  }
  const std::optional<LoopbackUrl> target = ParseLoopbackUrl(url);
  if (!target) {
    return std::nullopt;
  }
  std::optional<std::string> body = session->Get(target->port, target->path);
  return body && !body->empty() ? std::move(body) : std::nullopt;
}

}  // namespace

std::optional<LoopbackUrl> ParseLoopbackUrl(const std::string& url) {
  if (!url.starts_with(kScheme)) {
    return std::nullopt;
  }
  const std::size_t slash = url.find('/', kScheme.size());
  const std::string authority = url.substr(kScheme.size(), slash - kScheme.size());
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string::npos || colon + 1 == authority.size()) {
    return std::nullopt;
  }
  // Kept on purpose: leading blanks and a sign are taken, and what follows the digits is ignored.
  const int port = std::stoi(authority.substr(colon + 1));
  if (port < 1 || port > std::numeric_limits<std::uint16_t>::max()) {
    return std::nullopt;
  }
  return LoopbackUrl{
      .port = static_cast<std::uint16_t>(port),
      .path = slash == std::string::npos ? L"/" : Widened(std::string_view(url).substr(slash))};
}

std::optional<std::string> LocalHttpGet(const std::string& url, int timeout_ms) {
  try {
    return Get(url, timeout_ms);
  } catch (...) {  // a port that is no number, or no memory: like any other failure
    return std::nullopt;
  }
}

}  // namespace korvane
