// vpn_methods.h: the methods of the channel "vpn".
#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace korvane::test {

// Those that don't reach beyond the user whom a test runs for.
inline std::vector<std::string> LocalVpnMethods() {
  std::istringstream words(
      "loadVPNPreference doConnectVpn stopVPN isRunning getStatus getCoreVersion refreshVPNStatus "
      "isobtainedNecessaryPermissions enableAutoReconnect disableAutoReconnect getOnDemandStatus "
      "isBatteryOptimizationIgnored requestBatteryOptimizationExemption isAlwaysOnVpnEnabled "
      "openVpnSettings disconnectForNodeSwitching connectForNodeSwitching "
      "restoreUserAutoReconnectPreference checkForStuckState getWindowsDiagnosticsEnabled "
      "getWindowsDiagnosticsFailure setWindowsDiagnosticsEnabled checkForCrashLogs "
      "importPendingIncidents getPendingIncidents acknowledgeIncident recordShutdownIntent "
      "clearShutdownIntent getLibboxLogPath getAppGroupDirectory checkAdminPrivileges "
      "getWindowsRuntimeDiagnostics clearSystemProxy getAutoSelectorInfo performUrlTest");
  return {std::istream_iterator<std::string>(words), {}};
}

}  // namespace korvane::test
