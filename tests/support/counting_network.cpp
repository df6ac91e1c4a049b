#include "support/counted_subject.h"

namespace korvane::test {

using namespace platform;  // NOLINT: nearly every name below is one of its

namespace {

class CountingNetwork final : public Counted<Network> {
 public:
  using Counted::Counted;

  Result<std::vector<AdapterRow>> Adapters() override {
    return Make(Effect::kLooks, "Network.Adapters", &Network::Adapters);
  }
  Result<std::vector<RouteRow>> DefaultRoutes() override {
    return Make(Effect::kLooks, "Network.DefaultRoutes", &Network::DefaultRoutes);
  }
  Result<std::vector<SocketRow>> OwnSockets() override {
    return Make(Effect::kLooks, "Network.OwnSockets", &Network::OwnSockets);
  }
};

}  // namespace

std::unique_ptr<Network> Count(Network& inner, OperationCounter& counter) {
  return std::make_unique<CountingNetwork>(inner, counter);
}

}  // namespace korvane::test
