#include "egress/network_snapshot.h"

#include "platform/os.h"

namespace korvane {

namespace {

template <typename Row>
void Keep(platform::Result<std::vector<Row>> table, bool& failed, std::vector<Row>& rows) {
  failed = !table.ok();
  rows = failed ? std::vector<Row>() : table.take();
}

}  // namespace

void CollectAdapters(EgressSnapshot& snapshot) {
  Keep(platform::os().network->Adapters(), snapshot.adaptersFailed, snapshot.adapters);
}

void CollectDefaultRoutes(EgressSnapshot& snapshot) {
  Keep(platform::os().network->DefaultRoutes(), snapshot.routesFailed, snapshot.routes);
}

void CollectOwnSockets(EgressSnapshot& snapshot) {
  Keep(platform::os().network->OwnSockets(), snapshot.socketsFailed, snapshot.sockets);
}

}  // namespace korvane
