#include "vpn/vpn_workers.h"

#include "flutter_boundary/utf8.h"
#include "platform/os.h"
#include "system/elevation_takeover.h"
#include "system/proxy_manager.h"
#include "system/vpn_config_store.h"
#include "vpn/connect_path.h"
#include "vpn/disconnect_path.h"
#include "vpn/exception_text.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using flutter::EncodableValue;

// Engine and exception texts were valid when they were redacted; undoing an encoding may have left
// a stray byte since, and one of those makes a whole answer unreadable to the interface.

// Runs StartBox and answers with its outcome. It has told a failure to the event stream itself.
void StartAndAnswer(const OwnedResult& result, const std::string& config) {
  std::string code;
  std::string message;
  if (StartBox(config, &code, &message)) {
    result->Success(EncodableValue(true));
    return;
  }
  // coverage: so far every failure of StartBox has its code
  result->Error(code.empty() ? "CONNECTION_FAILED" : code,
                // coverage: and its message
                message.empty() ? "Failed to start VPN" : EnsureUtf8(message));
}

void FailBeforeStart(const OwnedResult& result, const std::string& code,
                     const std::string& message) {
  PostNativeError(code, message);
  PostVpnState(kVpnDisconnected);
  result->Error(code, message);
}

void SaveStartAndAnswer(const OwnedResult& result, const std::string& config) {
  if (!ValidateVpnConfig(config)) {
    FailBeforeStart(result, "INVALID_CONFIG", "Invalid VPN configuration format");
  } else if (!SaveVPNPreference(config)) {
    FailBeforeStart(result, "STORAGE_ERROR", "Failed to save VPN configuration");
  } else {
    StartAndAnswer(result, config);
  }
}

// Inside a catch block: tells a start that ended in an exception.
void TellFailedStart(const OwnedResult& result, const char* catch_word) {
  const std::string text = RedactedExceptionText();
  platform::WriteErrorLine(catch_word + text);
  PostVpnState(kVpnDisconnected);
  result->Error("CONNECTION_FAILED", EnsureUtf8(text));
}

// A full stop with its answer; what the engine or the system threw is answered, not told as a
// state.
void StopAndAnswer(const OwnedResult& result, const char* intent, const char* catch_word) {
  try {
    StopBoxInternal(/*disable_proxy=*/true, intent);
    result->Success(EncodableValue(true));
  } catch (...) {
    const std::string text = RedactedExceptionText();
    platform::WriteErrorLine(catch_word + text);
    result->Error("DISCONNECTION_FAILED", EnsureUtf8(text));
  }
}

}  // namespace

void LoadVpnPreferenceWorker(const OwnedResult& result, const std::string& config) {
  try {
    SaveStartAndAnswer(result, config);
  } catch (...) {
    TellFailedStart(result,
                    "[ERROR] Background thread: Exception in StartBox (loadVPNPreference): ");
  }
}

void ConnectForNodeSwitchingWorker(const OwnedResult& result, const std::string& config) {
  try {
    SaveStartAndAnswer(result, config);
  } catch (...) {
    TellFailedStart(result, "[ERROR] Background thread: Exception in StartBox (node switching): ");
  }
}

void DoConnectVpnWorker(const OwnedResult& result) {
  try {
    if (!LoadVPNPreference()) {
      platform::WriteErrorLine("[ERROR] doConnectVpn: LoadVPNPreference failed");
      PostVpnState(kVpnDisconnected);
      result->Error("NO_CONFIG", "No VPN configuration found");
      return;
    }
    StartAndAnswer(result, CopyConfigText());
  } catch (...) {
    TellFailedStart(result, "[ERROR] Background thread: Exception in StartBox: ");
  }
}

void StopVpnWorker(const OwnedResult& result) {
  StopAndAnswer(result, "user_disconnect", "[ERROR] Background thread: Exception in StopBox: ");
}

void DisconnectForNodeSwitchingWorker(const OwnedResult& result) {
  StopAndAnswer(result, "node_switch",
                "[ERROR] Background thread: Exception in StopBox (node switching): ");
}

void ClearSystemProxyWorker(const OwnedResult& result) {
  result->Success(EncodableValue(DisableSystemProxy()));
}

void RequestAdminPrivilegesWorker(const OwnedResult& result) {
  switch (RequestElevatedTakeover()) {  // coverage: every result has its case
    case TakeoverResult::kHandshake:
      result->Success(EncodableValue(true));
      return;
    case TakeoverResult::kCancelled:
      result->Error("USER_CANCELLED", "Elevation cancelled by user");
      return;
    case TakeoverResult::kTimeout:
      result->Error("TAKEOVER_TIMEOUT", "Timed out waiting for elevated process");
      return;
    case TakeoverResult::kChildDied:
      result->Error("CHILD_DIED", "Elevated process exited before handshake");
      return;
    case TakeoverResult::kDifferentUser:
      result->Error("ELEVATED_AS_DIFFERENT_USER", "Elevation completed under a different user");
      return;
    case TakeoverResult::kFailed:
      break;
  }
  result->Error("ELEVATION_FAILED", "Failed to launch elevated process");
}

}  // namespace korvane
