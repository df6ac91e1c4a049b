// egress_config.h: which remote endpoint the running configuration uses.
//
// The configuration is reduced to the auto-detect switch and the outbounds; from the outbound
// "proxy" the chain is followed through selectors and detours to a leaf, and the leaf is asked for
// one numeric address and port that can be compared with an open socket. A person reads the result,
// so every way in which that can fail has a status of its own.
//
// Pure functions over plain values: any thread, nothing logged, nothing thrown for bad input.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "egress/ip_literal.h"

namespace korvane {

enum class ConfigStatus : std::int32_t {
  kOk = 0,                 // both route keys were read
  kNoConfig = 1,           // no configuration text, or an empty one
  kJsonParseFailed = 2,    // no JSON, or its root is no object
  kAutoDetectMissing = 3,  // no object "route", or no "auto_detect_interface" in it
  kAutoDetectInvalid = 4,  // the switch is no boolean
};

enum class ActiveEndpointStatus : std::int32_t {
  kOk = 0,
  kNotEvaluatedConfigUnavailable = 1,  // the configuration's status isn't OK; nothing was walked
  kSelectorTransportFailed = 2,        // nothing is known of this group
  kSelectorResponseMalformed = 3,
  kSelectorNowMissing = 4,
  kSelectorCycle = 5,          // a step out of a selector leads back into the chain
  kSelectorDepthExceeded = 6,  // the ninth step is out of a selector
  kDetourCycle = 7,
  kDetourDepthExceeded = 8,
  kOutboundNotFound = 9,  // "proxy", a member or a detour
  kLeafHasNoRemoteEndpoint = 10,
  kEndpointMissing = 11,
  kEndpointInvalid = 12,
  kEndpointNotNumeric = 13,
  kEndpointNotSingleton = 14,
  kTransportUnsupported = 15,  // QUIC, which the TCP table can't see
  kTransportUnknown = 16,
};

// Who chooses the interface that the tunnel's own traffic leaves by.
enum class EgressPolicy : std::int32_t {
  kSingboxAutoDetect = 0,
  kOsRouted = 1,
  kUnknown = 2,
};

struct EgressOutbound {
  std::string tag;  // this and the next two: empty when absent or no string
  std::string type;
  std::string detour;
  bool hasServer = false;  // `server` is a non-empty string
  std::string server;
  bool hasPortField = false;        // `server_port` or `server_ports` is there at all
  bool portInvalid = false;         // one of them holds a value that can't be used
  bool portNotSingleton = false;    // `server_ports` holds a range or more than one element
  std::vector<std::int32_t> ports;  // all usable ones, both fields together
  bool hasTransport = false;
  std::string transportType;  // empty when `transport` tells none
};

struct EgressConfig {
  ConfigStatus configStatus = ConfigStatus::kNoConfig;
  bool autoDetectInterface = false;       // means something with status OK only
  std::vector<EgressOutbound> outbounds;  // in document order
};

enum class SelectorProbeStatus : std::int32_t {
  kRead = 0,
  kNoAnswer = 1,
  kMalformedAnswer = 2,
  kNowMissing = 3,
};

// The engine's view of one group.
struct SelectorProbe {
  std::string tag;
  SelectorProbeStatus status = SelectorProbeStatus::kNoAnswer;
  std::string now;  // the selected member
};

struct EgressResolution {
  ActiveEndpointStatus status = ActiveEndpointStatus::kOutboundNotFound;
  const EgressOutbound* leaf = nullptr;  // into the configuration; set with status OK only
  std::vector<std::string> chain;        // the tags that became current, from "proxy" on
};

struct LeafEndpoint {
  ActiveEndpointStatus status = ActiveEndpointStatus::kEndpointMissing;
  IpLiteral address;      // this and the port: set with status OK only
  std::int32_t port = 0;  // 1 to 65535
};

// `available` tells whether there is a text at all.
EgressConfig ParseEgressConfig(std::string_view text, bool available);

// Whether the outbound is a group whose choice the engine knows.
bool IsSelectorType(const EgressOutbound& outbound);

// Walks at most eight steps. Doesn't look at the configuration's status. Where several outbounds or
// probes share a tag, the first counts.
EgressResolution ResolveEgressChain(const EgressConfig& config,
                                    const std::vector<SelectorProbe>& probes);
// The leaf would point into what is gone.
EgressResolution ResolveEgressChain(EgressConfig&& config,
                                    const std::vector<SelectorProbe>& probes) = delete;

LeafEndpoint EvaluateLeafEndpoint(const EgressOutbound& outbound);

// The words of the report.
std::string_view ConfigStatusText(ConfigStatus status);
std::string_view ActiveEndpointStatusText(ActiveEndpointStatus status);
std::string_view EgressPolicyText(EgressPolicy policy);

}  // namespace korvane
