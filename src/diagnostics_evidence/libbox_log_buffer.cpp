#include "diagnostics_evidence/libbox_log_buffer.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/no_destructor.h"

namespace korvane {

// Capture is off: every writer returns at once and leaves nothing on disk.

LibboxLogBuffer& LibboxLogBuffer::instance() {
  static NoDestructor<LibboxLogBuffer> buffer;
  return *buffer;
}

bool LibboxLogBuffer::getWindowsDiagnosticsEnabled() { return false; }
std::string LibboxLogBuffer::getWindowsDiagnosticsFailure() { return {}; }

bool LibboxLogBuffer::setWindowsDiagnosticsEnabled(bool enabled, std::string* failure_out) {
  if (enabled && failure_out != nullptr) {
    *failure_out = "Cannot stage Windows diagnostics preference; capture remains off";
  }
  return !enabled;
}

std::string LibboxLogBuffer::incidentsDirectory() { return {}; }
std::string LibboxLogBuffer::currentSessionId() { return {}; }
std::string LibboxLogBuffer::getLibboxLogPath() { return {}; }
void LibboxLogBuffer::recordBreadcrumb(const std::string&, bool) {}
void LibboxLogBuffer::beginSession() {}
void LibboxLogBuffer::markCleanShutdown() {}
void LibboxLogBuffer::markFailedStart() {}
void LibboxLogBuffer::recordShutdownIntent(const std::string&) {}
bool LibboxLogBuffer::clearShutdownIntent(const std::string&) { return true; }
void LibboxLogBuffer::recordCloseResult(const std::string&, bool, std::optional<std::int32_t>,
                                        const std::string&) {}
void LibboxLogBuffer::writeOsShutdownMarker() {}
void LibboxLogBuffer::clearOsShutdownMarker() {}
bool LibboxLogBuffer::importPendingIncidents(std::string*) { return false; }
std::vector<IncidentRow> LibboxLogBuffer::getPendingIncidents(std::string*) { return {}; }
bool LibboxLogBuffer::acknowledgeIncident(const std::string&, std::int32_t) { return false; }
std::vector<std::string> LibboxLogBuffer::evictedIncidents(std::size_t) { return {}; }
std::int32_t LibboxLogBuffer::evictedCount() { return 0; }
std::optional<CrashSummary> LibboxLogBuffer::checkForCrashLogs() { return std::nullopt; }

bool isKnownShutdownReason(const std::string& reason) {
  constexpr std::array<std::string_view, 9> kReasons = {
      "user_disconnect",    "tray_quit",   "updater",
      "elevation_handoff",  "os_shutdown", "failed_start",
      "reconnect_teardown", "node_switch", "unknown"};
  return std::find(kReasons.begin(), kReasons.end(), reason) != kReasons.end();
}

}  // namespace korvane
