#include "vpn/vpn_method_channel.h"

#include <utility>

#include "flutter_boundary/method_channel.h"
#include "flutter_boundary/standard_method_codec.h"
#include "platform/os.h"
#include "vpn/engine_binding.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

constexpr char kMethodChannelName[] = "com.sundrelak.korvane/vpn";

struct VpnMethod {
  std::string_view name;
  void (*handler)(const Arguments& arguments, OwnedResult result);
};

// Searched from the top.
constexpr std::array<VpnMethod, 39> kVpnMethods = {{
    {"loadVPNPreference", MethodLoadVpnPreference},
    {"doConnectVpn", MethodDoConnectVpn},
    {"stopVPN", MethodStopVpn},
    {"isRunning", MethodIsRunning},
    {"getStatus", MethodGetStatus},
    {"getCoreVersion", MethodGetCoreVersion},
    {"refreshVPNStatus", MethodRefreshVpnStatus},
    {"isobtainedNecessaryPermissions", MethodAnswerTrue},
    {"enableAutoReconnect", MethodAnswerTrue},
    {"disableAutoReconnect", MethodAnswerTrue},
    {"getOnDemandStatus", MethodAnswerFalse},
    {"isBatteryOptimizationIgnored", MethodAnswerTrue},
    {"requestBatteryOptimizationExemption", MethodAnswerTrue},
    {"isAlwaysOnVpnEnabled", MethodAnswerFalse},
    {"openVpnSettings", MethodAnswerTrue},
    {"disconnectForNodeSwitching", MethodDisconnectForNodeSwitching},
    {"connectForNodeSwitching", MethodConnectForNodeSwitching},
    {"restoreUserAutoReconnectPreference", MethodRestoreUserAutoReconnectPreference},
    {"checkForStuckState", MethodAnswerFalse},
    {"getWindowsDiagnosticsEnabled", MethodGetWindowsDiagnosticsEnabled},
    {"getWindowsDiagnosticsFailure", MethodGetWindowsDiagnosticsFailure},
    {"setWindowsDiagnosticsEnabled", MethodSetWindowsDiagnosticsEnabled},
    {"checkForCrashLogs", MethodCheckForCrashLogs},
    {"importPendingIncidents", MethodImportPendingIncidents},
    {"getPendingIncidents", MethodGetPendingIncidents},
    {"acknowledgeIncident", MethodAcknowledgeIncident},
    {"recordShutdownIntent", MethodRecordShutdownIntent},
    {"clearShutdownIntent", MethodClearShutdownIntent},
    {"getLibboxLogPath", MethodGetLibboxLogPath},
    {"getAppGroupDirectory", MethodGetAppGroupDirectory},
    {"checkAdminPrivileges", MethodCheckAdminPrivileges},
    {"getWindowsRuntimeDiagnostics", MethodGetWindowsRuntimeDiagnostics},
    {"requestAdminPrivileges", MethodRequestAdminPrivileges},
    {"isElevatedAutostartEnabled", MethodIsElevatedAutostartEnabled},
    {"enableElevatedAutostart", MethodEnableElevatedAutostart},
    {"disableElevatedAutostart", MethodDisableElevatedAutostart},
    {"clearSystemProxy", MethodClearSystemProxy},
    {"getAutoSelectorInfo", MethodGetAutoSelectorInfo},
    {"performUrlTest", MethodPerformUrlTest},
}};

}  // namespace

void HandleVpnMethodCall(const flutter::MethodCall<>& call, OwnedResult result) {
  for (const VpnMethod& method : kVpnMethods) {
    if (method.name == call.method_name()) {
      method.handler(call.arguments(), std::move(result));
      return;
    }
  }
  result->NotImplemented();
}

void RegisterVpnChannels(flutter::BinaryMessenger* messenger) {
  auto channel = std::make_unique<flutter::MethodChannel<>>(
      messenger, kMethodChannelName, &flutter::StandardMethodCodec::GetInstance());
  channel->SetMethodCallHandler([](const flutter::MethodCall<>& call, OwnedResult result) {
    HandleVpnMethodCall(call, std::move(result));
  });
  vpn_state().method_channel = std::move(channel);
  OpenVpnEventChannel(messenger);
  if (!LoadEngine()) {
    platform::WriteErrorLine("Failed to load libbox DLL");
  }
}

}  // namespace korvane
