// proxy_description.h: an outbound as the Clash API shows it.
#pragma once

#include <nlohmann/json.hpp>

#include "engine/outbound_graph.h"

namespace korvane::stand_in {

// type, name, udp, history (the last delay of its leaf, if any), and now and all of a group, in
// this order.
nlohmann::ordered_json DescribeProxy(const OutboundGraph& graph, const Outbound& outbound);

}  // namespace korvane::stand_in
