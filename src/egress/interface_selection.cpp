#include "egress/interface_selection.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>

namespace korvane {

namespace {

bool HasAddress(const AdapterRow& adapter, const IpLiteral& address) {
  return std::any_of(adapter.addresses.begin(), adapter.addresses.end(),
                     [&address](const std::string& own) { return ParseIpLiteral(own) == address; });
}

bool TalksTo(const SocketRow& socket, const LeafEndpoint& endpoint) {
  return socket.remotePort == endpoint.port &&
         ParseIpLiteral(socket.remoteAddress) == endpoint.address;
}

// What the local addresses of the matching sockets say together.
struct Sources {
  std::size_t matching = 0;
  std::size_t unmapped = 0;
  std::size_t ambiguous = 0;
  std::set<std::int64_t> ordinals;
};

Sources SourcesTo(const LeafEndpoint& endpoint, const EgressSnapshot& snapshot,
                  const InterfaceOrdinals& ordinals) {
  Sources sources;
  for (const SocketRow& socket : snapshot.sockets) {
    if (!TalksTo(socket, endpoint)) {
      continue;
    }
    ++sources.matching;
    const MappedAddress source =
        MapAddressToInterface(snapshot.adapters, ordinals, socket.localAddress);
    switch (source.mapping) {  // coverage: every mapping has its case
      case AddressMapping::kMapped:
        sources.ordinals.insert(source.ordinal);
        break;
      case AddressMapping::kUnmapped:
        ++sources.unmapped;
        break;
      case AddressMapping::kAmbiguous:
        ++sources.ambiguous;
        break;
    }
  }
  return sources;
}

// The order of the tests decides which of several faults is told.
SelectionStatus Judge(const Sources& sources) {
  if (sources.matching == 0) {
    return SelectionStatus::kNoMatchingSocket;
  }
  if (sources.ambiguous > 0) {
    return SelectionStatus::kAddressInterfaceAmbiguous;
  }
  if (sources.ordinals.empty()) {
    return SelectionStatus::kSocketSourceAddressUnmapped;
  }
  if (sources.unmapped > 0) {
    return SelectionStatus::kPartialSocketSourceMapping;
  }
  return sources.ordinals.size() > 1 ? SelectionStatus::kMultipleMatchingSocketInterfaces
                                     : SelectionStatus::kOk;
}

// Why the sockets needn't be looked at; nothing when they must.
std::optional<SelectionStatus> NotEvaluated(const EgressSnapshot& snapshot, EgressPolicy policy,
                                            const LeafEndpoint& endpoint) {
  if (policy == EgressPolicy::kOsRouted) {
    return SelectionStatus::kNotApplicableOsRouted;
  }
  if (endpoint.status != ActiveEndpointStatus::kOk) {
    return SelectionStatus::kNotEvaluatedEndpointUnavailable;
  }
  if (snapshot.socketsFailed) {
    return SelectionStatus::kNotEvaluatedSocketEnumFailed;
  }
  if (snapshot.adaptersFailed) {
    return SelectionStatus::kNotEvaluatedAdapterEnumFailed;
  }
  return std::nullopt;
}

}  // namespace

InterfaceOrdinals OrdinalsOf(const std::vector<AdapterRow>& adapters) {
  InterfaceOrdinals indices;
  for (const AdapterRow& adapter : adapters) {
    indices.push_back(adapter.ifIndex);
  }
  std::sort(indices.begin(), indices.end());
  indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
  return indices;
}

std::int64_t OrdinalOf(const InterfaceOrdinals& ordinals, std::uint32_t index) {
  const auto found = std::lower_bound(ordinals.begin(), ordinals.end(), index);
  return found != ordinals.end() && *found == index ? found - ordinals.begin() + 1 : 0;
}

MappedAddress MapAddressToInterface(const std::vector<AdapterRow>& adapters,
                                    const InterfaceOrdinals& ordinals, std::string_view address) {
  const IpLiteral wanted = ParseIpLiteral(address);
  if (!wanted.ok) {
    return {};
  }
  MappedAddress mapped;
  for (const AdapterRow& adapter : adapters) {
    const std::int64_t ordinal = OrdinalOf(ordinals, adapter.ifIndex);
    // coverage: the ordinals are those of these adapters, so none is 0
    if (ordinal == 0 || ordinal == mapped.ordinal || !HasAddress(adapter, wanted)) {
      continue;
    }
    if (mapped.mapping == AddressMapping::kMapped) {
      return {.mapping = AddressMapping::kAmbiguous};
    }
    mapped = {.mapping = AddressMapping::kMapped, .ordinal = ordinal};
  }
  return mapped;
}

InterfaceSelection SelectInterface(const EgressSnapshot& snapshot,
                                   const InterfaceOrdinals& ordinals, EgressPolicy policy,
                                   const LeafEndpoint& endpoint) {
  if (const auto status = NotEvaluated(snapshot, policy, endpoint)) {
    return {.status = *status};
  }
  const Sources sources = SourcesTo(endpoint, snapshot, ordinals);
  InterfaceSelection selection;
  selection.status = Judge(sources);
  if (selection.status == SelectionStatus::kOk) {
    selection.ordinal = *sources.ordinals.begin();
  }
  return selection;
}

std::string_view SelectionStatusText(SelectionStatus status) {
  constexpr std::array<std::string_view, 10> kTexts = {"OK",
                                                       "NOT_APPLICABLE_OS_ROUTED",
                                                       "NOT_EVALUATED_ENDPOINT_UNAVAILABLE",
                                                       "NOT_EVALUATED_SOCKET_ENUM_FAILED",
                                                       "NOT_EVALUATED_ADAPTER_ENUM_FAILED",
                                                       "NO_MATCHING_SOCKET",
                                                       "SOCKET_SOURCE_ADDRESS_UNMAPPED",
                                                       "PARTIAL_SOCKET_SOURCE_MAPPING",
                                                       "MULTIPLE_MATCHING_SOCKET_INTERFACES",
                                                       "ADDRESS_INTERFACE_AMBIGUOUS"};
  return kTexts[static_cast<std::size_t>(status)];
}

}  // namespace korvane
