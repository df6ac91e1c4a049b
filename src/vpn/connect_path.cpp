#include "vpn/connect_path.h"

#include <string>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "platform/os.h"
#include "system/elevated_autostart.h"
#include "system/proxy_manager.h"
#include "system/vpn_config_store.h"
#include "vpn/config_text.h"
#include "vpn/decisions.h"
#include "vpn/disconnect_path.h"
#include "vpn/engine_service.h"
#include "vpn/exception_text.h"
#include "vpn/operation_scope.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using platform::os;
using platform::WriteErrorLine;

constexpr char kConnectionFailed[] = "CONNECTION_FAILED";
constexpr char kInvalidConfig[] = "INVALID_CONFIG";

// One start, from the refusals to the last word. Lives inside lifecycle_mutex.
class StartOperation {
 public:
  StartOperation(OperationScope& scope, std::string* code_out, std::string* message_out)
      : scope_(scope), code_out_(code_out), message_out_(message_out) {}

  bool Run(VpnState& vpn, const std::string& config) KORVANE_REQUIRES(vpn.lifecycle_mutex) {
    if (Refused(vpn, config)) {
      return false;
    }
    const bool is_tun = HasTunInbound(config);
    if (is_tun && !IsProcessElevated()) {
      AskForElevation();
      return false;
    }
    StopBoxInternal(/*disable_proxy=*/false, "reconnect_teardown");
    if (is_tun) {
      os().clocks->SleepMilliseconds(kTunSettleMs);
    }
    LibboxLogBuffer::instance().beginSession();
    session_begun_ = true;
    // Unconditional in this release: no crash sink is ever armed.
    RecordDecision("StartBox", "crash_capture_disabled_privacy", true);

    std::string effective = config;
    const EngineStart start = StartWithRetry(vpn, effective);
    if (start.service_id == 0) {
      Fail(kConnectionFailed, start.error);
      RecordFailedStart();
      return false;
    }
    vpn.service_id = start.service_id;
    vpn.is_running = true;
    // The text that really runs; a rewritten interface name doesn't go back to the file.
    vpn.config_text = effective;
    vpn.last_native_error.Clear();
    ConfigureProxy(vpn, effective);
    PostVpnState(kVpnConnected);
    scope_.Close();
    return true;
  }

  // The engine may be running by now, and stays so.
  bool FailWithException(const std::string& text) {
    WriteErrorLine("[ERROR] Exception in StartBox: " + text);
    Fail(kConnectionFailed, "Exception in StartBox: " + text);
    RecordFailedStart();
    return false;
  }

 private:
  // Kept on purpose: these post "vpn_disconnected" although a tunnel may still run; a refresh right
  // after corrects it.
  bool Refused(const VpnState& vpn, const std::string& config) {
    if (vpn.core_integrity_failed) {
      WriteErrorLine("[SECURITY] Refusing to start: VPN core integrity check failed");
      Fail("CORE_INTEGRITY_FAILED",
           "VPN core integrity check failed. The bundled VPN engine (sing-box.dll) is missing, "
           "unsigned, or not signed by Korvane, and was refused. Reinstall Korvane from the "
           "official source.");
      return true;
    }
    const bool has_new = vpn.engine.singbox_new_service != nullptr;
    const bool has_start = vpn.engine.singbox_start_service != nullptr;
    if (!has_new || !has_start) {
      WriteErrorLine("[ERROR] DLL functions not loaded");
      WriteErrorLine(std::string("  singbox_new_service_: ") + (has_new ? "OK" : "NULL"));
      WriteErrorLine(std::string("  singbox_start_service_: ") + (has_start ? "OK" : "NULL"));
      Fail(kConnectionFailed, "DLL functions not loaded");
      return true;
    }
    if (config.empty()) {
      WriteErrorLine("[ERROR] Config is empty!");
      Fail(kInvalidConfig, "Config is empty");
      return true;
    }
    if (!ValidateVpnConfig(config)) {
      WriteErrorLine("[ERROR] Config validation failed!");
      Fail(kInvalidConfig, "Invalid VPN configuration format");
      return true;
    }
    return false;
  }

  // No failure: no error event, and what runs stays up.
  void AskForElevation() {
    Tell("ELEVATION_REQUIRED", "Administrator privileges required to start VPN");
    PostVpnState(kVpnElevationRequired);
    scope_.Close();
  }

  // Runs the engine on the text; once more under a fresh interface name when an earlier adapter has
  // not yet gone, and then `effective` is the rewritten text.
  EngineStart StartWithRetry(VpnState& vpn, std::string& effective)
      KORVANE_REQUIRES(vpn.lifecycle_mutex) {
    EngineStart start = CreateAndStartEngine(vpn, effective);
    if (start.service_id != 0 || !HasTunInbound(effective) || !IsTunCollisionError(start.error)) {
      return start;
    }
    const std::string name = NextTunInterfaceName();
    std::string rewritten = RewriteInterfaceName(effective, name);
    if (rewritten == effective) {
      return start;
    }
    WriteErrorLine(
        "[WARNING] Detected stale TUN interface collision. Retrying with interface name: " + name);
    os().clocks->SleepMilliseconds(kTunRetryMs);
    start = CreateAndStartEngine(vpn, rewritten);
    if (start.service_id != 0) {
      effective.swap(rewritten);
    }
    return start;
  }

  // Throws where the port's digits don't fit an int.
  void ConfigureProxy(const VpnState& vpn, const std::string& effective) {
    if (HasTunInbound(effective) || !HasMixedInbound(effective) || !vpn.autoConfigureProxy) {
      return;
    }
    if (!EnableSystemProxy("127.0.0.1", FindMixedListenPort(effective))) {
      WriteErrorLine("[WARNING] Failed to configure system proxy");
    }
  }

  void Tell(const std::string& code, const std::string& message) {
    if (code_out_ != nullptr) {
      *code_out_ = code;
    }
    if (message_out_ != nullptr) {
      *message_out_ = message;
    }
  }

  // The scope closes ahead of the word, so that a refresh right behind it agrees.
  void Fail(const std::string& code, const std::string& message) {
    Tell(code, message);
    PostNativeError(code, message);
    scope_.Close();
    PostVpnState(kVpnDisconnected);
  }

  // A start that was refused before its evidence session leaves none behind.
  void RecordFailedStart() {
    // coverage: only a teardown that throws, as when memory runs out, comes here without a session
    if (session_begun_) {
      LibboxLogBuffer::instance().recordShutdownIntent("failed_start");
      LibboxLogBuffer::instance().markFailedStart();
    }
  }

  OperationScope& scope_;
  std::string* code_out_;
  std::string* message_out_;
  bool session_begun_ = false;
};

}  // namespace

bool StartBox(const std::string& config, std::string* code_out, std::string* message_out) {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  OperationScope scope(vpn, kPhaseStarting);
  StartOperation start(scope, code_out, message_out);
  try {
    return start.Run(vpn, config);
  } catch (...) {
    return start.FailWithException(RedactedExceptionText());
  }
}

bool SaveVPNPreference(const std::string& text) {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  if (!ValidateVpnConfig(text)) {
    WriteErrorLine("[ERROR] SaveVPNPreference: Config validation failed!");
    return false;
  }
  if (&text != &vpn.config_text) {
    vpn.config_text = text;
  }
  return SaveVpnConfigFile(vpn.config_text);
}

bool LoadVPNPreference() {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  // Kept on purpose: the text of a tunnel that runs is replaced too, even by an empty one.
  vpn.config_text = LoadVpnConfigFile();
  if (vpn.config_text.empty()) {
    WriteErrorLine("[ERROR] LoadVPNPreference: Config is empty after loading!");
    return false;
  }
  return ValidateVpnConfig(vpn.config_text);
}

}  // namespace korvane
