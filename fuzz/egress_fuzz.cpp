// Arbitrary bytes as a configuration whose groups have all chosen something, on a machine whose
// addresses come from the configuration too: the walk ends, and the report holds no such text.
#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "egress/egress_report.h"
#include "require.h"

namespace {

using korvane::fuzz::Require;

bool IsWord(const korvane::EgressScalar& scalar) {
  const auto* text = std::get_if<std::string>(&scalar);
  return text == nullptr || std::all_of(text->begin(), text->end(), [](char byte) {
           return byte == '_' || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
         });
}

void CheckReport(const korvane::EgressReport& report) {
  for (const korvane::EgressValue& value : report) {
    if (const auto* scalar = std::get_if<korvane::EgressScalar>(&value.value)) {
      Require(IsWord(*scalar));
      continue;
    }
    for (const korvane::EgressRow& row : std::get<korvane::EgressTable>(value.value)) {
      for (const korvane::EgressCell& cell : row) {
        Require(IsWord(cell.value));
      }
    }
  }
}

// Each group has chosen the outbound behind it.
korvane::EgressSnapshot SnapshotOf(korvane::EgressConfig config) {
  korvane::EgressSnapshot snapshot;
  for (std::size_t i = 0; i < config.outbounds.size(); ++i) {
    const korvane::EgressOutbound& outbound = config.outbounds[i];
    const std::string& next = config.outbounds[(i + 1) % config.outbounds.size()].tag;
    snapshot.selectorProbes.push_back(
        {.tag = outbound.tag, .status = korvane::SelectorProbeStatus::kRead, .now = next});
    const auto index = static_cast<std::uint32_t>(i + 1);
    snapshot.adapters.push_back({.ifIndex = index, .addresses = {outbound.server}});
    snapshot.routes.push_back({.family = 4, .ifIndex = index + 1, .metric = 0});
    snapshot.sockets.push_back({.localAddress = outbound.server,
                                .localPort = 1,
                                .remoteAddress = outbound.server,
                                .remotePort = outbound.ports.empty() ? 0 : outbound.ports.front()});
  }
  snapshot.config = std::move(config);
  return snapshot;
}

void CheckWalk(const korvane::EgressSnapshot& snapshot) {
  const auto walk = korvane::ResolveEgressChain(snapshot.config, snapshot.selectorProbes);
  Require(walk.chain.size() <= 9);
  Require(std::set<std::string>(walk.chain.begin(), walk.chain.end()).size() == walk.chain.size());
  Require((walk.leaf != nullptr) == (walk.status == korvane::ActiveEndpointStatus::kOk));
  if (walk.leaf != nullptr) {
    const auto endpoint = korvane::EvaluateLeafEndpoint(*walk.leaf);
    Require(endpoint.address.ok == (endpoint.status == korvane::ActiveEndpointStatus::kOk));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Few inputs would get as far as the outbounds by themselves.
  const std::string text =
      R"({"route":{"auto_detect_interface":true},"outbounds":[{"tag":"proxy",)" +
      std::string(reinterpret_cast<const char*>(data), size) + "}]}";
  const korvane::EgressSnapshot snapshot = SnapshotOf(korvane::ParseEgressConfig(text, true));
  CheckWalk(snapshot);
  CheckReport(korvane::BuildEgressReport(snapshot));
  static_cast<void>(korvane::ParseIpLiteral({reinterpret_cast<const char*>(data), size}));
  return 0;
}
