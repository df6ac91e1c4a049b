// network_snapshot.h: all that the egress report is made from.
//
// The three tables of the system are read one after the other and aren't atomic with each other;
// the engine may open and close sockets meanwhile, and the report says where they disagree. A table
// that can't be read fails by itself. Worker threads; no lock, nothing logged.
#pragma once

#include <string>
#include <vector>

#include "egress/egress_config.h"
#include "platform/network.h"

namespace korvane {

using platform::AdapterRow;
using platform::RouteRow;
using platform::SocketRow;

struct EgressSnapshot {
  EgressConfig config;
  bool adaptersFailed = false;
  std::vector<AdapterRow> adapters;
  bool routesFailed = false;
  std::vector<RouteRow> routes;
  bool socketsFailed = false;
  std::vector<SocketRow> sockets;  // of this process, in which the engine runs
  std::vector<SelectorProbe> selectorProbes;
  std::string selectorHint;  // the group that the asker believes in; may be empty
};

// Each fills its two fields.
void CollectAdapters(EgressSnapshot& snapshot);
void CollectDefaultRoutes(EgressSnapshot& snapshot);
void CollectOwnSockets(EgressSnapshot& snapshot);

}  // namespace korvane
