#include "vpn/disconnect_path.h"

#include <cstdint>
#include <optional>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "platform/os.h"
#include "system/proxy_manager.h"
#include "vpn/decisions.h"
#include "vpn/engine_binding.h"
#include "vpn/exception_text.h"
#include "vpn/operation_scope.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using platform::WriteErrorLine;

constexpr char kSite[] = "StopBoxInternal";

void Decide(const char* decision) { RecordDecision(kSite, decision, true); }

struct CloseOutcome {
  bool confirmed = false;
  std::optional<std::int32_t> code;  // absent when the engine threw
  std::string error;                 // redacted
};

CloseOutcome CloseEngine(const VpnState& vpn) {
  CloseOutcome outcome;
  try {
    const std::int32_t code = vpn.engine.singbox_close_service(vpn.service_id);
    outcome.code = code;
    outcome.confirmed = code == 0;
    if (!outcome.confirmed) {
      outcome.error = ReadEngineError(vpn.engine).value_or("");
    }
  } catch (...) {
    outcome.code.reset();
    outcome.confirmed = false;
    outcome.error = RedactedExceptionText();
    WriteErrorLine("[ERROR] Exception in singbox_close_service: " + outcome.error);
  }
  return outcome;
}

void ReportUnconfirmedClose(const CloseOutcome& outcome) {
  WriteErrorLine(
      "[ERROR] singbox_close_service failed (rc=" + std::to_string(outcome.code.value_or(-1)) +
      ", threw=" + (outcome.code ? "no" : "yes") + ", error='" + outcome.error + "')");
}

// One unconfirmed close latches for good; the marker goes by this close alone.
void SettleMarker(VpnState& vpn, bool confirmed, const std::string& session_id)
    KORVANE_REQUIRES(vpn.lifecycle_mutex) {
  if (confirmed) {
    LibboxLogBuffer::instance().markCleanShutdown();
    return;
  }
  vpn.unconfirmed_close_latched = true;
  WriteErrorLine(
      "[LibboxLogBuffer] Skipping clean-shutdown marker: engine close failed for session " +
      session_id);
}

void CloseRunningService(VpnState& vpn, const std::string& intent)
    KORVANE_REQUIRES(vpn.lifecycle_mutex) {
  LibboxLogBuffer& evidence = LibboxLogBuffer::instance();
  const std::string session_id = evidence.currentSessionId();
  evidence.recordShutdownIntent(isKnownShutdownReason(intent) ? intent : "unknown");

  const CloseOutcome outcome = CloseEngine(vpn);
  // The service is forgotten even when its close failed: the next start won't close it again.
  vpn.service_id = 0;
  evidence.recordCloseResult(session_id, outcome.confirmed, outcome.code, outcome.error);
  if (!outcome.confirmed) {
    ReportUnconfirmedClose(outcome);
  }
  Decide(outcome.confirmed ? "service_closed" : "service_close_failed");
  SettleMarker(vpn, outcome.confirmed, session_id);
}

std::int32_t CallSetCrashOutput(const VpnState& vpn) {
  try {
    return vpn.engine.singbox_set_crash_output("");
  } catch (...) {
    WriteErrorLine("[DIAG] Exception disarming crash output: " + RedactedExceptionText());
    return 1;
  }
}

// An engine that may still be alive keeps somewhere to write a fatal error.
void DisarmCrashOutput(VpnState& vpn) KORVANE_REQUIRES(vpn.lifecycle_mutex) {
  if (vpn.unconfirmed_close_latched) {
    WriteErrorLine(
        "[DIAG] Keeping the crash-output sink ARMED: an engine close was not confirmed, so a later "
        "Go fatal must still have somewhere to be written");
    return;
  }
  if (vpn.engine.singbox_set_crash_output == nullptr) {
    return;
  }
  const std::int32_t code = CallSetCrashOutput(vpn);
  if (code != 0) {
    WriteErrorLine("[DIAG] crash output not disarmed (rc=" + std::to_string(code) + ", error='" +
                   ReadEngineError(vpn.engine).value_or("") +
                   "'); the previous session's crash-output file may stay locked");
  }
}

void ClearProxy() {
  Decide("proxy_cleanup_begin");
  const bool cleared = DisableSystemProxy();
  Decide(cleared ? "proxy_cleanup_done" : "proxy_cleanup_failed");
  if (!cleared) {
    WriteErrorLine("[WARNING] Failed to disable system proxy");
  }
}

}  // namespace

void StopBoxInternal(bool disable_proxy, const std::string& intent) {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  OperationScope scope(vpn, kPhaseStopping);
  Decide(disable_proxy ? "enter_disableProxy" : "enter_reconnect_teardown");

  if (vpn.service_id != 0 && vpn.engine.singbox_close_service != nullptr) {
    CloseRunningService(vpn, intent);
  }
  DisarmCrashOutput(vpn);
  if (disable_proxy && vpn.autoConfigureProxy) {
    ClearProxy();
  }
  vpn.is_running = false;
  // A core without a close export leaves the identifier standing until here.
  vpn.service_id = 0;
  vpn.config_text.clear();

  if (!disable_proxy) {
    // The enclosing start speaks for the outcome.
    Decide("reconnect_teardown_no_broadcast");
    return;
  }
  scope.Close();
  Decide("authoritative_disconnected");
  PostVpnState(kVpnDisconnected);
}

}  // namespace korvane
