#include "egress/egress_config.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "egress/json_document.h"

namespace korvane {

namespace {

constexpr std::int64_t kMaxPort = 65535;
// The fixed name of the outbound where every walk begins, whatever the interface calls its groups.
constexpr std::string_view kRootTag = "proxy";
constexpr int kMaxSteps = 8;

template <typename Texts>
bool IsOneOf(std::string_view text, const Texts& texts) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

std::string StringMember(const JsonValue& object, std::string_view key) {
  const JsonValue* member = FindMember(object, key);
  return member != nullptr ? std::string(member->StringValue()) : std::string();
}

void AddPort(std::optional<std::int64_t> port, EgressOutbound& outbound) {
  if (port && *port >= 1 && *port <= kMaxPort) {
    outbound.ports.push_back(static_cast<std::int32_t>(*port));
  } else {
    outbound.portInvalid = true;
  }
}

// A whole text of digits, no sign and no blank; nothing when it is anything else or too large.
std::optional<std::int64_t> DecimalNumber(std::string_view text) {
  std::uint32_t number = 0;  // unsigned, so that no sign is taken
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  const bool whole = read.ec == std::errc() && read.ptr == end;
  return whole ? std::optional<std::int64_t>(number) : std::nullopt;
}

void ReadServerPort(const JsonValue& port, EgressOutbound& outbound) {
  outbound.hasPortField = true;
  AddPort(port.Kind() == JsonKind::kInteger ? std::optional(port.IntValue()) : std::nullopt,
          outbound);
}

void ReadServerPorts(const JsonValue& ports, EgressOutbound& outbound) {
  outbound.hasPortField = true;
  if (ports.Items().empty()) {
    outbound.portInvalid = true;
    return;
  }
  for (const JsonValue& item : ports.Items()) {
    if (item.Kind() != JsonKind::kString) {
      outbound.portInvalid = true;
    } else if (item.StringValue().find(':') != std::string_view::npos) {
      outbound.portNotSingleton = true;  // a range
    } else {
      AddPort(DecimalNumber(item.StringValue()), outbound);
    }
  }
  if (ports.Items().size() > 1) {
    outbound.portNotSingleton = true;
  }
}

EgressOutbound ReadOutbound(const JsonValue& object) {
  EgressOutbound outbound;
  outbound.tag = StringMember(object, "tag");
  outbound.type = StringMember(object, "type");
  outbound.detour = StringMember(object, "detour");
  outbound.server = StringMember(object, "server");
  outbound.hasServer = !outbound.server.empty();
  if (const JsonValue* port = FindMember(object, "server_port")) {
    ReadServerPort(*port, outbound);
  }
  if (const JsonValue* ports = FindMember(object, "server_ports")) {
    ReadServerPorts(*ports, outbound);
  }
  if (const JsonValue* transport = FindMember(object, "transport")) {
    outbound.hasTransport = true;
    outbound.transportType = StringMember(*transport, "type");
  }
  return outbound;
}

EgressConfig Unread(ConfigStatus status) {
  EgressConfig config;
  config.configStatus = status;
  return config;
}

const EgressOutbound* FindOutbound(const EgressConfig& config, std::string_view tag) {
  const auto found = std::find_if(config.outbounds.begin(), config.outbounds.end(),
                                  [tag](const EgressOutbound& each) { return each.tag == tag; });
  return found != config.outbounds.end() ? &*found : nullptr;
}

// The selected member of a group, or why it isn't known.
ActiveEndpointStatus SelectedMember(const std::vector<SelectorProbe>& probes, std::string_view tag,
                                    std::string& now) {
  const auto probe = std::find_if(probes.begin(), probes.end(),
                                  [tag](const SelectorProbe& each) { return each.tag == tag; });
  if (probe == probes.end() || probe->status == SelectorProbeStatus::kNoAnswer) {
    return ActiveEndpointStatus::kSelectorTransportFailed;
  }
  if (probe->status == SelectorProbeStatus::kMalformedAnswer) {
    return ActiveEndpointStatus::kSelectorResponseMalformed;
  }
  if (probe->status == SelectorProbeStatus::kNowMissing || probe->now.empty()) {
    return ActiveEndpointStatus::kSelectorNowMissing;
  }
  now = probe->now;
  return ActiveEndpointStatus::kOk;
}

ActiveEndpointStatus CheckTransport(const EgressOutbound& outbound) {
  constexpr std::array<std::string_view, 3> kOverTcp = {"ws", "grpc", "http"};
  if (outbound.transportType.empty() || IsOneOf(outbound.transportType, kOverTcp)) {
    return ActiveEndpointStatus::kOk;
  }
  return outbound.transportType == "quic" ? ActiveEndpointStatus::kTransportUnsupported
                                          : ActiveEndpointStatus::kTransportUnknown;
}

// The order of the tests decides which of several faults is told.
ActiveEndpointStatus CheckLeaf(const EgressOutbound& outbound, const IpLiteral& address) {
  constexpr std::array<std::string_view, 3> kLocal = {"direct", "block", "dns"};
  constexpr std::array<std::string_view, 3> kOverQuic = {"hysteria", "hysteria2", "tuic"};
  constexpr std::array<std::string_view, 5> kOverTcp = {"vmess", "vless", "trojan", "anytls",
                                                        "shadowsocks"};
  if (IsOneOf(outbound.type, kLocal)) {
    return ActiveEndpointStatus::kLeafHasNoRemoteEndpoint;
  }
  if (!outbound.hasServer || !outbound.hasPortField) {
    return ActiveEndpointStatus::kEndpointMissing;
  }
  if (outbound.portInvalid || outbound.ports.empty()) {
    return ActiveEndpointStatus::kEndpointInvalid;
  }
  if (!address.ok) {
    return ActiveEndpointStatus::kEndpointNotNumeric;
  }
  if (outbound.portNotSingleton || outbound.ports.size() != 1) {
    return ActiveEndpointStatus::kEndpointNotSingleton;
  }
  if (IsOneOf(outbound.type, kOverQuic)) {
    return ActiveEndpointStatus::kTransportUnsupported;
  }
  return IsOneOf(outbound.type, kOverTcp) ? CheckTransport(outbound)
                                          : ActiveEndpointStatus::kTransportUnknown;
}

}  // namespace

EgressConfig ParseEgressConfig(std::string_view text, bool available) {
  if (!available || text.empty()) {
    return Unread(ConfigStatus::kNoConfig);
  }
  const std::optional<JsonDocument> document = ParseJsonDocument(text);
  if (!document || document->Root().Kind() != JsonKind::kObject) {
    return Unread(ConfigStatus::kJsonParseFailed);
  }
  const JsonValue* route = FindMember(document->Root(), "route");
  const JsonValue* auto_detect =
      route != nullptr ? FindMember(*route, "auto_detect_interface") : nullptr;
  if (auto_detect == nullptr) {
    return Unread(ConfigStatus::kAutoDetectMissing);
  }
  if (auto_detect->Kind() != JsonKind::kBool) {
    return Unread(ConfigStatus::kAutoDetectInvalid);
  }

  EgressConfig config = Unread(ConfigStatus::kOk);
  config.autoDetectInterface = auto_detect->BoolValue();
  const JsonValue* outbounds = FindMember(document->Root(), "outbounds");
  if (outbounds != nullptr) {
    for (const JsonValue& item : outbounds->Items()) {
      if (item.Kind() == JsonKind::kObject) {
        config.outbounds.push_back(ReadOutbound(item));
      }
    }
  }
  return config;
}

bool IsSelectorType(const EgressOutbound& outbound) {
  return outbound.type == "selector" || outbound.type == "urltest";
}

EgressResolution ResolveEgressChain(const EgressConfig& config,
                                    const std::vector<SelectorProbe>& probes) {
  EgressResolution resolution;
  const auto ended = [&resolution](ActiveEndpointStatus status) {
    resolution.status = status;
    return resolution;
  };
  std::string next(kRootTag);
  for (int steps = 0;; ++steps) {
    const EgressOutbound* current = FindOutbound(config, next);
    if (current == nullptr) {
      return ended(ActiveEndpointStatus::kOutboundNotFound);
    }
    resolution.chain.push_back(next);
    const bool from_selector = IsSelectorType(*current);
    if (from_selector) {
      const ActiveEndpointStatus known = SelectedMember(probes, current->tag, next);
      if (known != ActiveEndpointStatus::kOk) {
        return ended(known);
      }
    } else if (current->detour.empty()) {
      resolution.leaf = current;
      return ended(ActiveEndpointStatus::kOk);
    } else {
      next = current->detour;
    }
    if (steps == kMaxSteps) {
      return ended(from_selector ? ActiveEndpointStatus::kSelectorDepthExceeded
                                 : ActiveEndpointStatus::kDetourDepthExceeded);
    }
    if (IsOneOf(next, resolution.chain)) {
      return ended(from_selector ? ActiveEndpointStatus::kSelectorCycle
                                 : ActiveEndpointStatus::kDetourCycle);
    }
  }
}

LeafEndpoint EvaluateLeafEndpoint(const EgressOutbound& outbound) {
  const IpLiteral address = ParseIpLiteral(outbound.server);
  LeafEndpoint endpoint;
  endpoint.status = CheckLeaf(outbound, address);
  if (endpoint.status == ActiveEndpointStatus::kOk) {
    endpoint.address = address;
    endpoint.port = outbound.ports.front();
  }
  return endpoint;
}

std::string_view ConfigStatusText(ConfigStatus status) {
  constexpr std::array<std::string_view, 5> kTexts = {"OK", "NO_CONFIG", "JSON_PARSE_FAILED",
                                                      "AUTO_DETECT_MISSING", "AUTO_DETECT_INVALID"};
  return kTexts[static_cast<std::size_t>(status)];
}

std::string_view ActiveEndpointStatusText(ActiveEndpointStatus status) {
  constexpr std::array<std::string_view, 17> kTexts = {"OK",
                                                       "NOT_EVALUATED_CONFIG_UNAVAILABLE",
                                                       "SELECTOR_TRANSPORT_FAILED",
                                                       "SELECTOR_RESPONSE_MALFORMED",
                                                       "SELECTOR_NOW_MISSING",
                                                       "SELECTOR_CYCLE",
                                                       "SELECTOR_DEPTH_EXCEEDED",
                                                       "DETOUR_CYCLE",
                                                       "DETOUR_DEPTH_EXCEEDED",
                                                       "OUTBOUND_NOT_FOUND",
                                                       "LEAF_HAS_NO_REMOTE_ENDPOINT",
                                                       "ENDPOINT_MISSING",
                                                       "ENDPOINT_INVALID",
                                                       "ENDPOINT_NOT_NUMERIC",
                                                       "ENDPOINT_NOT_SINGLETON",
                                                       "TRANSPORT_UNSUPPORTED",
                                                       "TRANSPORT_UNKNOWN"};
  return kTexts[static_cast<std::size_t>(status)];
}

std::string_view EgressPolicyText(EgressPolicy policy) {
  switch (policy) {
    case EgressPolicy::kSingboxAutoDetect:
      return "singbox_auto_detect";
    case EgressPolicy::kOsRouted:
      return "os_routed";
    default:
      return "unknown";
  }
}

}  // namespace korvane
