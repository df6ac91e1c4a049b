// vpn_methods.h: the methods of the channel "vpn", grouped by what they are about.
//
// Each takes the call's arguments, by exact type (a value of another type counts as absent), and
// owns the result. All run on the window thread; the header of vpn_workers.h tells of those that
// hand over.
#pragma once

#include <string>

#include "flutter_boundary/encodable_value.h"
#include "vpn/vpn_workers.h"

namespace korvane {

using Arguments = flutter::EncodableValue;

// Tunnel: connect, disconnect, state.
void MethodLoadVpnPreference(const Arguments& arguments, OwnedResult result);
void MethodDoConnectVpn(const Arguments& arguments, OwnedResult result);
void MethodStopVpn(const Arguments& arguments, OwnedResult result);
void MethodIsRunning(const Arguments& arguments, OwnedResult result);
void MethodGetStatus(const Arguments& arguments, OwnedResult result);
void MethodGetCoreVersion(const Arguments& arguments, OwnedResult result);
void MethodRefreshVpnStatus(const Arguments& arguments, OwnedResult result);
void MethodDisconnectForNodeSwitching(const Arguments& arguments, OwnedResult result);
void MethodConnectForNodeSwitching(const Arguments& arguments, OwnedResult result);
void MethodRestoreUserAutoReconnectPreference(const Arguments& arguments, OwnedResult result);
void MethodClearSystemProxy(const Arguments& arguments, OwnedResult result);

// Methods without work behind them on this platform: fixed answers that keep the vocabulary whole.
void MethodAnswerTrue(const Arguments& arguments, OwnedResult result);
void MethodAnswerFalse(const Arguments& arguments, OwnedResult result);
void MethodGetAppGroupDirectory(const Arguments& arguments, OwnedResult result);

// Rights and autostart.
void MethodCheckAdminPrivileges(const Arguments& arguments, OwnedResult result);
void MethodRequestAdminPrivileges(const Arguments& arguments, OwnedResult result);
void MethodIsElevatedAutostartEnabled(const Arguments& arguments, OwnedResult result);
void MethodEnableElevatedAutostart(const Arguments& arguments, OwnedResult result);
void MethodDisableElevatedAutostart(const Arguments& arguments, OwnedResult result);

// Evidence.
void MethodGetWindowsDiagnosticsEnabled(const Arguments& arguments, OwnedResult result);
void MethodGetWindowsDiagnosticsFailure(const Arguments& arguments, OwnedResult result);
void MethodSetWindowsDiagnosticsEnabled(const Arguments& arguments, OwnedResult result);
void MethodCheckForCrashLogs(const Arguments& arguments, OwnedResult result);
void MethodImportPendingIncidents(const Arguments& arguments, OwnedResult result);
void MethodGetPendingIncidents(const Arguments& arguments, OwnedResult result);
void MethodAcknowledgeIncident(const Arguments& arguments, OwnedResult result);
void MethodRecordShutdownIntent(const Arguments& arguments, OwnedResult result);
void MethodClearShutdownIntent(const Arguments& arguments, OwnedResult result);
void MethodGetLibboxLogPath(const Arguments& arguments, OwnedResult result);

// What only the running engine can answer.
void MethodGetWindowsRuntimeDiagnostics(const Arguments& arguments, OwnedResult result);
void MethodGetAutoSelectorInfo(const Arguments& arguments, OwnedResult result);
void MethodPerformUrlTest(const Arguments& arguments, OwnedResult result);

}  // namespace korvane
