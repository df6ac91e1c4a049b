// egress_report.h: through which interface the tunnel's own traffic really leaves, and whether that
// is what the configuration promises, as a list of named values.
//
// Safe to hand to a support reader: nothing but status words, metrics, states and ordinals leaves
// here, and no address, port, adapter name or interface index. Always built; what could not be read
// says so in a status of its own. Pure.
//
//   configStatus, autoDetectInterfaceEnabled (with "OK" only), egressSelectionPolicy,
//   activeEndpointStatus, selectorHintStale
//   selectedInterfaceOrdinal (integer or null), selectionStatus
//   interfacesStatus       "OK", "ADAPTER_ENUM_FAILED"
//   interfaces             rows of ordinal, operStatus, interfaceMetric
//   defaultRoutesStatus    "OK", "ROUTE_ENUM_FAILED", "SNAPSHOT_INCONSISTENT"
//   defaultRoutes          rows of family, interfaceOrdinal, interfaceOrdinalStatus, routeMetric
//   socketSourcesStatus    "OK", "SOCKET_ENUM_FAILED"
//   observedSocketSources  rows of interfaceOrdinal
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "egress/network_snapshot.h"

namespace korvane {

// Null, bool, integer or text; the index is the kind.
using EgressScalar = std::variant<std::monostate, bool, std::int64_t, std::string>;

struct EgressCell {
  std::string name;
  EgressScalar value;
};

using EgressRow = std::vector<EgressCell>;
using EgressTable = std::vector<EgressRow>;

struct EgressValue {
  std::string name;
  std::variant<EgressScalar, EgressTable> value;
};

using EgressReport = std::vector<EgressValue>;

EgressReport BuildEgressReport(const EgressSnapshot& snapshot);

}  // namespace korvane
