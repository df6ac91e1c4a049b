// outbound_order.h: the order in which outbounds depend on each other.
#pragma once

#include <vector>

#include "engine/configuration.h"

namespace korvane::stand_in {

// Every outbound behind all of its members; those that stand in a circle, or above one, are left
// out. Pointers into the argument.
std::vector<const Outbound*> MembersFirst(const std::vector<Outbound>& outbounds);

}  // namespace korvane::stand_in
