#include "engine/outbound_order.h"

#include <cstddef>
#include <map>
#include <string>

namespace korvane::stand_in {

std::vector<const Outbound*> MembersFirst(const std::vector<Outbound>& outbounds) {
  std::map<std::string, std::vector<const Outbound*>> waiting_for;
  std::map<const Outbound*, std::size_t> members_left;
  std::vector<const Outbound*> order;
  for (const Outbound& outbound : outbounds) {
    for (const std::string& member : outbound.members) {
      waiting_for[member].push_back(&outbound);
    }
    members_left[&outbound] = outbound.members.size();
    if (outbound.members.empty()) {
      order.push_back(&outbound);
    }
  }
  // The list grows while it is walked: each outbound lets those go on that waited for it.
  for (std::size_t i = 0; i < order.size(); ++i) {
    for (const Outbound* group : waiting_for[order[i]->tag]) {
      if (--members_left[group] == 0) {
        order.push_back(group);
      }
    }
  }
  return order;
}

}  // namespace korvane::stand_in
