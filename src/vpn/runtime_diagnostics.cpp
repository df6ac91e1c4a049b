#include "vpn/runtime_diagnostics.h"

#include <type_traits>
#include <utility>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "egress/selector_probes.h"
#include "engine_api/clash_api.h"
#include "system/elevated_autostart.h"
#include "system/proxy_manager.h"
#include "vpn/config_text.h"
#include "vpn/method_arguments.h"

namespace korvane {

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;

EncodableValue IntOrNull(std::optional<int> number) {
  return number ? EncodableValue(std::int32_t{*number}) : EncodableValue();
}

EncodableValue ConvertScalar(const EgressScalar& scalar) {
  return std::visit(
      [](const auto& value) {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>) {
          return EncodableValue();
        } else {
          return EncodableValue(value);
        }
      },
      scalar);
}

EncodableList ConvertTable(const EgressTable& table) {
  EncodableList rows;
  for (const EgressRow& row : table) {
    EncodableMap cells;
    for (const EgressCell& cell : row) {
      cells.insert_or_assign(EncodableValue(cell.name), ConvertScalar(cell.value));
    }
    rows.emplace_back(std::move(cells));
  }
  return rows;
}

EgressReport ReadEgress(const RuntimeDiagnosticsJob& job, std::optional<int> controller_port) {
  EgressSnapshot snapshot;
  snapshot.config = ParseEgressConfig(job.config, !job.config.empty());
  snapshot.selectorHint = job.selectorTag;
  CollectAdapters(snapshot);
  CollectDefaultRoutes(snapshot);
  CollectOwnSockets(snapshot);
  snapshot.selectorProbes = ProbeSelectors(snapshot.config, controller_port);
  return BuildEgressReport(snapshot);
}

// In the order in which a reader of the map expects its facts to have been
// taken.
EncodableMap ReadRuntime(const RuntimeDiagnosticsJob& job) {
  const bool is_admin = IsProcessElevated();
  const SystemProxyState proxy = QuerySystemProxy();
  const std::optional<int> clash_port = ExtractClashApiPort(job.config);
  const std::optional<int> mixed_port = FindInboundListenPort(job.config, "mixed-in");
  const bool reachable = clash_port && ProbeClashApiReachable(*clash_port);

  // Kept on purpose: a stop empties the configuration, so after one the mode
  // that was attempted last reads "none".
  const std::string mode = ClassifyConfigMode(job.config);
  EncodableMap map = {
      {"startup", job.startup},
      {"lastAttemptedMode", mode},
      {"effectiveMode", job.running ? mode : std::string("none")},
      {"isAdmin", is_admin},
      {"isRunning", job.running},
      {"autoConfigureProxy", job.autoConfigureProxy},
      {"systemProxyEnabled", proxy.enabled},
      {"systemProxyServer", TextValue(proxy.server)},
      {"systemProxyBypass", TextValue(proxy.bypass)},
      {"clashApiReachable", reachable},
      {"clashApiPort", IntOrNull(clash_port)},
      {"mixedInboundPort", IntOrNull(mixed_port)},
      {"lastNativeError",
       job.lastError ? TextValue(LastNativeErrorText(*job.lastError)) : EncodableValue()},
      {"libboxLogPath", TextValue(LibboxLogBuffer::instance().getLibboxLogPath())},
  };
  for (const EgressValue& value : ReadEgress(job, clash_port)) {
    map.insert_or_assign(EncodableValue(value.name), ConvertEgressValue(value));
  }
  return map;
}

}  // namespace

std::string LastNativeErrorText(const NativeErrorEvent& error) {
  return error.code.empty() ? error.message : error.code + ": " + error.message;
}

EncodableValue ConvertEgressValue(const EgressValue& value) {
  if (const auto* table = std::get_if<EgressTable>(&value.value)) {
    return ConvertTable(*table);
  }
  return ConvertScalar(std::get<EgressScalar>(value.value));
}

void RuntimeDiagnosticsWorker(const OwnedResult& result, const RuntimeDiagnosticsJob& job) {
  const EncodableMap report = ReadRuntime(job);
  result->Success(report);
}

}  // namespace korvane
