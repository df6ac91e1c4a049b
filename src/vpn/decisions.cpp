#include "vpn/decisions.h"

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

const char* PhaseWord(std::int32_t phase) {
  switch (phase) {
    case kPhaseStarting:
      return "starting";
    case kPhaseStopping:
      return "stopping";
    default:
      return "none";
  }
}

}  // namespace

void RecordDecision(const std::string& site, const std::string& decision, bool emit_event) {
  LibboxLogBuffer& evidence = LibboxLogBuffer::instance();
  if (!evidence.getWindowsDiagnosticsEnabled()) {
    return;
  }
  const VpnState& vpn = vpn_state();
  const bool is_running = vpn.is_running;
  const std::uint64_t service_id = vpn.service_id;
  const std::int32_t op_depth = vpn.op_depth;
  const std::string op_phase = PhaseWord(vpn.op_phase);

  evidence.recordBreadcrumb(site + " decision=" + decision + " is_running=" +
                                (is_running ? "1" : "0") + " svc=" + std::to_string(service_id) +
                                " op_depth=" + std::to_string(op_depth) + " op_phase=" + op_phase,
                            /*throttled=*/!emit_event);
  if (emit_event) {
    PostVpnDiagnostic({.component = site,
                       .decision = decision,
                       .is_running = is_running,
                       .service_active = service_id != 0,
                       .op_depth = op_depth,
                       .op_phase = op_phase});
  }
}

void DecideRefreshState(const std::string& site, const std::string& state_word) {
  if (state_word == kVpnConnected) {
    RecordDecision(site, "connected", false);
  } else if (state_word == kVpnConnecting) {
    RecordDecision(site, "suppress_terminal_connecting", true);
  } else if (state_word == kVpnDisconnecting) {
    RecordDecision(site, "suppress_terminal_disconnecting", true);
  } else {
    RecordDecision(site, "disconnected", true);
  }
}

}  // namespace korvane
