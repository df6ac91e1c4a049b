#include "egress/egress_report.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "egress/interface_selection.h"

namespace korvane {

namespace {

EgressScalar Text(std::string_view text) { return std::string(text); }
EgressScalar Integer(std::int64_t number) { return number; }
EgressScalar OrdinalOrNull(std::int64_t ordinal) {
  return ordinal != 0 ? Integer(ordinal) : EgressScalar();
}

EgressPolicy PolicyOf(const EgressConfig& config) {
  if (config.configStatus != ConfigStatus::kOk) {
    return EgressPolicy::kUnknown;
  }
  return config.autoDetectInterface ? EgressPolicy::kSingboxAutoDetect : EgressPolicy::kOsRouted;
}

// The endpoint in use, and the tags on the way to it; none when nothing was walked.
struct ActiveEndpoint {
  LeafEndpoint endpoint;
  std::vector<std::string> chain;
};

ActiveEndpoint FindActiveEndpoint(const EgressSnapshot& snapshot) {
  ActiveEndpoint active;
  active.endpoint.status = ActiveEndpointStatus::kNotEvaluatedConfigUnavailable;
  if (snapshot.config.configStatus != ConfigStatus::kOk) {
    return active;
  }
  EgressResolution resolution = ResolveEgressChain(snapshot.config, snapshot.selectorProbes);
  active.endpoint.status = resolution.status;
  if (resolution.leaf != nullptr) {
    active.endpoint = EvaluateLeafEndpoint(*resolution.leaf);
  }
  active.chain = std::move(resolution.chain);
  return active;
}

// A hint is stale also when nothing was walked that it could be part of.
bool IsStale(const std::string& hint, const std::vector<std::string>& chain) {
  return !hint.empty() && std::find(chain.begin(), chain.end(), hint) == chain.end();
}

EgressTable InterfaceTable(const EgressSnapshot& snapshot, const InterfaceOrdinals& ordinals) {
  EgressTable table;
  if (snapshot.adaptersFailed) {
    return table;
  }
  std::vector<AdapterRow> adapters = snapshot.adapters;
  std::stable_sort(adapters.begin(), adapters.end(),
                   [](const AdapterRow& a, const AdapterRow& b) { return a.ifIndex < b.ifIndex; });
  for (const AdapterRow& adapter : adapters) {
    table.push_back({{"ordinal", Integer(OrdinalOf(ordinals, adapter.ifIndex))},
                     {"operStatus", Integer(adapter.operStatus)},
                     {"interfaceMetric", Integer(adapter.ipv4Metric)}});
  }
  return table;
}

struct RouteTable {
  EgressTable rows;
  bool inconsistent = false;  // a route leads to an interface that the list of them doesn't have
};

RouteTable DefaultRouteTable(const EgressSnapshot& snapshot, const InterfaceOrdinals& ordinals) {
  RouteTable table;
  if (snapshot.routesFailed) {
    return table;
  }
  for (const RouteRow& route : snapshot.routes) {
    const std::int64_t ordinal = snapshot.adaptersFailed ? 0 : OrdinalOf(ordinals, route.ifIndex);
    table.inconsistent |= ordinal == 0 && !snapshot.adaptersFailed;
    table.rows.push_back(
        {{"family", Integer(route.family)},
         {"interfaceOrdinal", OrdinalOrNull(ordinal)},
         {"interfaceOrdinalStatus", Text(ordinal != 0 ? "OK" : "ROUTE_INTERFACE_UNMAPPED")},
         {"routeMetric", Integer(route.metric)}});
  }
  return table;
}

EgressTable SocketSourceTable(const EgressSnapshot& snapshot, const InterfaceOrdinals& ordinals) {
  EgressTable table;
  if (snapshot.socketsFailed || snapshot.adaptersFailed) {
    return table;
  }
  std::set<std::int64_t> sources;
  for (const SocketRow& socket : snapshot.sockets) {
    const MappedAddress source =
        MapAddressToInterface(snapshot.adapters, ordinals, socket.localAddress);
    if (source.mapping == AddressMapping::kMapped) {
      sources.insert(source.ordinal);
    }
  }
  for (const std::int64_t ordinal : sources) {
    table.push_back({{"interfaceOrdinal", Integer(ordinal)}});
  }
  return table;
}

std::string_view RoutesStatus(const EgressSnapshot& snapshot, const RouteTable& routes) {
  if (snapshot.routesFailed) {
    return "ROUTE_ENUM_FAILED";
  }
  return routes.inconsistent ? "SNAPSHOT_INCONSISTENT" : "OK";
}

}  // namespace

EgressReport BuildEgressReport(const EgressSnapshot& snapshot) {
  EgressReport report;
  const auto emit = [&report](const char* name, std::variant<EgressScalar, EgressTable> value) {
    report.push_back({name, std::move(value)});
  };
  const EgressConfig& config = snapshot.config;
  emit("configStatus", Text(ConfigStatusText(config.configStatus)));
  if (config.configStatus == ConfigStatus::kOk) {
    emit("autoDetectInterfaceEnabled", EgressScalar(config.autoDetectInterface));
  }
  const EgressPolicy policy = PolicyOf(config);
  emit("egressSelectionPolicy", Text(EgressPolicyText(policy)));

  const ActiveEndpoint active = FindActiveEndpoint(snapshot);
  emit("activeEndpointStatus", Text(ActiveEndpointStatusText(active.endpoint.status)));
  emit("selectorHintStale", EgressScalar(IsStale(snapshot.selectorHint, active.chain)));

  const InterfaceOrdinals ordinals = OrdinalsOf(snapshot.adapters);
  const InterfaceSelection selection = SelectInterface(snapshot, ordinals, policy, active.endpoint);
  emit("selectedInterfaceOrdinal", OrdinalOrNull(selection.ordinal));
  emit("selectionStatus", Text(SelectionStatusText(selection.status)));

  emit("interfacesStatus", Text(snapshot.adaptersFailed ? "ADAPTER_ENUM_FAILED" : "OK"));
  emit("interfaces", InterfaceTable(snapshot, ordinals));
  RouteTable routes = DefaultRouteTable(snapshot, ordinals);
  emit("defaultRoutesStatus", Text(RoutesStatus(snapshot, routes)));
  emit("defaultRoutes", std::move(routes.rows));
  emit("socketSourcesStatus", Text(snapshot.socketsFailed ? "SOCKET_ENUM_FAILED" : "OK"));
  emit("observedSocketSources", SocketSourceTable(snapshot, ordinals));
  return report;
}

}  // namespace korvane
