// interface_selection.h: from addresses to interfaces, and which of them the tunnel's own traffic
// leaves by.
//
// An interface is told by its ordinal alone: the 1-based place of its index in the sorted list of
// all, good for one report. Pure.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "egress/egress_config.h"
#include "egress/network_snapshot.h"

namespace korvane {

// Distinct interface indices, ascending.
using InterfaceOrdinals = std::vector<std::uint32_t>;

InterfaceOrdinals OrdinalsOf(const std::vector<AdapterRow>& adapters);

// 0 for an index that isn't in the list.
std::int64_t OrdinalOf(const InterfaceOrdinals& ordinals, std::uint32_t index);

enum class AddressMapping : std::int32_t {
  kMapped = 0,
  kUnmapped = 1,   // no interface has the address, or it is none
  kAmbiguous = 2,  // several have it
};

struct MappedAddress {
  AddressMapping mapping = AddressMapping::kUnmapped;
  std::int64_t ordinal = 0;  // set when mapped only
};

MappedAddress MapAddressToInterface(const std::vector<AdapterRow>& adapters,
                                    const InterfaceOrdinals& ordinals, std::string_view address);

enum class SelectionStatus : std::int32_t {
  kOk = 0,
  kNotApplicableOsRouted = 1,
  kNotEvaluatedEndpointUnavailable = 2,
  kNotEvaluatedSocketEnumFailed = 3,
  kNotEvaluatedAdapterEnumFailed = 4,
  kNoMatchingSocket = 5,
  kSocketSourceAddressUnmapped = 6,
  kPartialSocketSourceMapping = 7,
  kMultipleMatchingSocketInterfaces = 8,
  kAddressInterfaceAmbiguous = 9,
};

std::string_view SelectionStatusText(SelectionStatus status);

struct InterfaceSelection {
  SelectionStatus status = SelectionStatus::kNoMatchingSocket;
  std::int64_t ordinal = 0;  // set with status OK only
};

// The one interface whose addresses all sockets to the endpoint have, or why there is none such.
InterfaceSelection SelectInterface(const EgressSnapshot& snapshot,
                                   const InterfaceOrdinals& ordinals, EgressPolicy policy,
                                   const LeafEndpoint& endpoint);

}  // namespace korvane
