// clash_api.h: reading the engine's Clash API: where it listens, what a selector has chosen, how
// fast an outbound is.
//
// A base URL is that of ClashApiBase, without a slash at its end. What makes requests blocks, on
// worker threads only. Nothing is written and nothing shared; any thread. A missing answer is an
// empty optional, -1 or a false `found`. Digits beyond an int throw std::out_of_range out of
// everything here that reads a number; the callers know.
#pragma once

#include <optional>
#include <string>

namespace korvane {

// Fetched by every delay test: plain http, answers 204. Chosen by the build.
extern const char* const kDefaultProbeUrl;

// The port of the configuration's first `external_controller` on 127.0.0.1, whatever its range;
// nothing when the API is off.
std::optional<int> ExtractClashApiPort(const std::string& config);

// The first `listen_port` behind the inbound's tag. Kept on purpose: behind the colon of "tag"
// stands no blank or one, and the port may be that of a later inbound.
std::optional<int> FindInboundListenPort(const std::string& config, const std::string& tag);

// "http://127.0.0.1:PORT"
std::string ClashApiBase(int port);

// All bytes but ASCII letters, digits, '-', '.', '_' and '~' as '%' and two upper-case digits.
std::string UrlEncodeTag(const std::string& tag);

// The first number behind the key, at any depth of the JSON text.
std::optional<int> JsonExtractInt(const std::string& json, const std::string& key);
// The first string behind the key. Kept on purpose: escapes stay as they are, and an escaped quote
// ends it.
std::optional<std::string> JsonExtractString(const std::string& json, const std::string& key);

// The member that a selector or an automatic group uses now.
std::optional<std::string> GetSelectorNow(const std::string& base, const std::string& tag);

struct SelectorResolution {
  bool found = false;          // the first read was answered
  std::string leaf_tag;        // the outbound at the end of the chain; empty when none is known
  std::string auto_group_tag;  // the last automatic group ("auto", "auto_*") on the way
};

// Follows at most three automatic groups from a selector to the outbound in use.
SelectorResolution ResolveSelectorLeaf(const std::string& base, const std::string& tag);

// The delay in milliseconds as the engine tells it; -1 for none. `timeout_ms` is the engine's own
// time-out, sent as it is.
int ProbeProxyDelay(const std::string& base, const std::string& tag, int timeout_ms);

// The engine's answer to a delay test of a whole group: member names and milliseconds, as JSON.
std::optional<std::string> ProbeGroupDelays(const std::string& base, const std::string& tag,
                                            int timeout_ms);

struct LatencyPick {
  std::string tag;   // empty when there is no winner
  int latency = -1;  // milliseconds; -1 then
};

// The lowest value above 0; on a tie the first. The second looks at keys of the form node_<digits>.
LatencyPick PickLowestLatency(const std::string& json);
LatencyPick PickLowestNodeLatency(const std::string& json);

// Whether anything answers `/version` on the port; one try.
bool ProbeClashApiReachable(int port);

}  // namespace korvane
