#include "engine_api/url_test.h"

#include <cstdint>
#include <optional>

#include "engine_api/clash_api.h"
#include "platform/os.h"

namespace korvane {

namespace {

constexpr std::uint32_t kSettleWaitMs = 500;
constexpr int kOwnProbeTimeoutMs = 3000;

EngineApiError ApiDisabled() {
  return {"API_UNAVAILABLE", "Clash API is disabled for this session"};
}

EngineApiError TestFailed(const char* message) { return {"URL_TEST_FAILED", message}; }

EngineApiError Dropped() { return TestFailed("VPN disconnected during URLTest"); }

// Takes the answer of the automatic group over: the outbound in use is looked up in it, or, when
// the chain has no known end, chosen from it.
void TakeGroupDelays(const std::string& body, AutoSelectorInfo& info) {
  info.all_latencies = body;
  if (info.selected_tag.empty()) {
    const LatencyPick pick = PickLowestNodeLatency(body);
    if (pick.tag.empty()) {
      return;
    }
    info.selected_tag = pick.tag;
    info.selected_latency = pick.latency;
  }
  if (info.selected_latency <= 0) {
    info.selected_latency = JsonExtractInt(body, info.selected_tag).value_or(-1);
  }
}

AutoSelectorInfo Measure(const std::string& base, const SelectorResolution& resolution) {
  AutoSelectorInfo info{.selected_tag = resolution.leaf_tag};
  if (!resolution.auto_group_tag.empty()) {
    if (const auto body = ProbeGroupDelays(base, resolution.auto_group_tag, kOwnProbeTimeoutMs)) {
      TakeGroupDelays(*body, info);
    }
  }
  if (!info.selected_tag.empty() && info.selected_latency < 1) {
    info.selected_latency = ProbeProxyDelay(base, info.selected_tag, kOwnProbeTimeoutMs);
  }
  return info;
}

std::variant<int, EngineApiError> LowestOfGroup(const std::string& base, const std::string& group,
                                                int timeout_ms) {
  const auto body = ProbeGroupDelays(base, group, timeout_ms > 0 ? timeout_ms : kOwnProbeTimeoutMs);
  if (!body) {
    return TestFailed("Group delay probe unreachable");
  }
  const int latency = PickLowestLatency(*body).latency;
  if (latency < 1) {
    return TestFailed("No healthy member in selector group");
  }
  return latency;
}

}  // namespace

std::variant<AutoSelectorInfo, EngineApiError> GetAutoSelectorInfo(
    const std::string& config, const std::string& selector_tag,
    const std::function<bool()>& connected) {
  platform::os().clocks->SleepMilliseconds(kSettleWaitMs);
  if (!connected()) {
    return EngineApiError{"VPN_NOT_CONNECTED",
                          "VPN disconnected before querying auto selector info"};
  }
  const std::optional<int> port = ExtractClashApiPort(config);
  if (!port) {
    return ApiDisabled();
  }
  const std::string base = ClashApiBase(*port);
  const SelectorResolution resolution = ResolveSelectorLeaf(base, selector_tag);
  if (!resolution.found) {
    return EngineApiError{"API_UNAVAILABLE", "Clash API selector not responding"};
  }
  return Measure(base, resolution);
}

std::variant<int, EngineApiError> PerformUrlTest(const std::string& config,
                                                 const std::string& selector_tag, int timeout_ms,
                                                 const UrlTestCheckpoint& still_connected) {
  const std::optional<int> port = ExtractClashApiPort(config);
  if (!port) {
    return ApiDisabled();
  }
  const std::string base = ClashApiBase(*port);
  const std::string group = selector_tag.empty() ? kDefaultSelectorTag : selector_tag;
  if (!still_connected("before-resolve")) {
    return Dropped();
  }
  const std::string leaf = ResolveSelectorLeaf(base, group).leaf_tag;
  if (!leaf.empty()) {
    if (!still_connected("before-leaf-probe")) {
      return Dropped();
    }
    const int latency = ProbeProxyDelay(base, leaf, timeout_ms);
    if (latency > 0) {
      return latency;
    }
  }
  if (!still_connected("before-group-fallback")) {
    return Dropped();
  }
  // Kept on purpose: the group is the selector itself, not the automatic group on the way, which is
  // what GetAutoSelectorInfo asks for.
  return LowestOfGroup(base, group, timeout_ms);
}

}  // namespace korvane
