#include "engine_api/clash_api.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "engine_api/clash_patterns.h"
#include "engine_api/local_http.h"

namespace korvane {

const char* const kDefaultProbeUrl = KORVANE_PROBE_URL;

namespace {

constexpr int kReachableTimeoutMs = 1200;
constexpr int kSelectorTimeoutMs = 3000;
constexpr int kLeastDelayTimeoutMs = 4000;
constexpr int kDelayMarginMs = 1000;
constexpr int kMostHops = 3;

std::optional<int> ToInt(std::optional<std::string_view> digits) {
  return digits ? std::optional(std::stoi(std::string(*digits))) : std::nullopt;
}

// Letters and digits of ASCII alone, whatever the locale says.
bool IsAsciiAlphanumeric(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool IsAutoLike(std::string_view tag) { return tag == "auto" || tag.starts_with("auto_"); }

// The client must outlast the engine's own test.
int DelayHttpTimeout(int timeout_ms) {
  if (timeout_ms <= kLeastDelayTimeoutMs) {
    return kLeastDelayTimeoutMs;
  }
  constexpr int kMost = std::numeric_limits<int>::max();
  return timeout_ms > kMost - kDelayMarginMs ? kMost : timeout_ms + kDelayMarginMs;
}

std::optional<std::string> AskDelay(const std::string& outbound_url, int timeout_ms) {
  return LocalHttpGet(
      outbound_url + "/delay?url=" + kDefaultProbeUrl + "&timeout=" + std::to_string(timeout_ms),
      DelayHttpTimeout(timeout_ms));
}

using MatchNext = std::optional<DelayMatch> (*)(std::string_view text, std::size_t from);

LatencyPick PickLowest(const std::string& json, MatchNext match_next) {
  LatencyPick pick;
  int best = std::numeric_limits<int>::max();
  auto match = match_next(json, 0);
  while (match) {
    const int latency = *ToInt(match->digits);
    if (latency > 0 && latency < best) {
      best = latency;
      pick = {.tag = std::string(match->key), .latency = latency};
    }
    match = match_next(json, match->end);
  }
  return pick;
}

}  // namespace

std::optional<int> ExtractClashApiPort(const std::string& config) {
  return ToInt(MatchControllerPort(config));
}

std::optional<int> FindInboundListenPort(const std::string& config, const std::string& tag) {
  std::size_t inbound = config.find(R"("tag":")" + tag + '"');
  if (inbound == std::string::npos) {
    inbound = config.find(R"("tag": ")" + tag + '"');
  }
  if (inbound == std::string::npos) {
    return std::nullopt;
  }
  return ToInt(MatchListenPort(std::string_view(config).substr(inbound)));
}

std::string ClashApiBase(int port) { return "http://127.0.0.1:" + std::to_string(port); }

std::string UrlEncodeTag(const std::string& tag) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  constexpr std::string_view kUnreserved = "-._~";
  std::string encoded;
  for (const char c : tag) {
    if (IsAsciiAlphanumeric(c) || kUnreserved.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded += {'%', kDigits[byte >> 4U], kDigits[byte & 0x0FU]};
    }
  }
  return encoded;
}

std::optional<int> JsonExtractInt(const std::string& json, const std::string& key) {
  return ToInt(MatchInt(json, key));
}

std::optional<std::string> JsonExtractString(const std::string& json, const std::string& key) {
  const auto value = MatchString(json, key);
  return value ? std::optional(std::string(*value)) : std::nullopt;
}

std::optional<std::string> GetSelectorNow(const std::string& base, const std::string& tag) {
  const auto answer = LocalHttpGet(base + "/proxies/" + UrlEncodeTag(tag), kSelectorTimeoutMs);
  return answer ? JsonExtractString(*answer, "now") : std::nullopt;
}

SelectorResolution ResolveSelectorLeaf(const std::string& base, const std::string& tag) {
  SelectorResolution resolution;
  auto now = tag.empty() ? std::nullopt : GetSelectorNow(base, tag);
  if (!now) {
    return resolution;
  }
  resolution.found = true;
  for (int hop = 0; hop < kMostHops && IsAutoLike(*now); ++hop) {
    resolution.auto_group_tag = *now;
    now = GetSelectorNow(base, *now);
    if (!now || now->empty()) {
      return resolution;
    }
  }
  (IsAutoLike(*now) ? resolution.auto_group_tag : resolution.leaf_tag) = *now;
  return resolution;
}

int ProbeProxyDelay(const std::string& base, const std::string& tag, int timeout_ms) {
  if (tag.empty()) {
    return -1;
  }
  const auto answer = AskDelay(base + "/proxies/" + UrlEncodeTag(tag), timeout_ms);
  return answer ? JsonExtractInt(*answer, "delay").value_or(-1) : -1;
}

std::optional<std::string> ProbeGroupDelays(const std::string& base, const std::string& tag,
                                            int timeout_ms) {
  return AskDelay(base + "/group/" + UrlEncodeTag(tag), timeout_ms);
}

LatencyPick PickLowestLatency(const std::string& json) { return PickLowest(json, MatchDelay); }

LatencyPick PickLowestNodeLatency(const std::string& json) {
  return PickLowest(json, MatchNodeDelay);
}

bool ProbeClashApiReachable(int port) {
  return LocalHttpGet(ClashApiBase(port) + "/version", kReachableTimeoutMs).has_value();
}

}  // namespace korvane
