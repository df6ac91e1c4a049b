// url_test.h: the two questions that only the running engine can answer: how fast is the path in
// use, and what has the automatic selector picked.
//
// Values in, answer out: what a question needs of the tunnel is handed in, and its answer is handed
// back, so that the caller answers exactly once. Both block for seconds, on a worker thread that
// holds no lock, and throw what the reading of numbers throws (clash_api.h). Every delay is that of
// kDefaultProbeUrl.
#pragma once

#include <functional>
#include <string>
#include <variant>

namespace korvane {

inline constexpr char kDefaultSelectorTag[] = "proxy";

// Why there is no answer, as a channel error tells it.
struct EngineApiError {
  std::string code;
  std::string message;
};

struct AutoSelectorInfo {
  std::string selected_tag;          // the outbound in use; may be empty
  int selected_latency = -1;         // milliseconds; -1 when unknown
  std::string all_latencies = "{}";  // the engine's answer for the automatic group, as it came
};

// Waits 500 ms, asks `connected` once, and then the engine. An empty selector tag finds nothing.
std::variant<AutoSelectorInfo, EngineApiError> GetAutoSelectorInfo(
    const std::string& config, const std::string& selector_tag,
    const std::function<bool()>& connected);

// Whether the tunnel is still up, asked before each stage; the name only marks the place. Stages:
// "before-resolve", "before-leaf-probe", "before-group-fallback".
using UrlTestCheckpoint = std::function<bool(const char* stage)>;

// The delay of the outbound in use in milliseconds, or, when it has none, the lowest of the
// selector's members. An empty selector tag means kDefaultSelectorTag.
std::variant<int, EngineApiError> PerformUrlTest(const std::string& config,
                                                 const std::string& selector_tag, int timeout_ms,
                                                 const UrlTestCheckpoint& still_connected);

}  // namespace korvane
