#include <cstdint>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "vpn/method_arguments.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr char kInvalidArguments[] = "INVALID_ARGUMENTS";
constexpr std::size_t kEvictedLimit = 50;

EncodableList TextList(const std::vector<std::string>& texts) {
  EncodableList list;
  list.reserve(texts.size());
  for (const std::string& text : texts) {
    list.push_back(TextValue(text));
  }
  return list;
}

EncodableMap IncidentMap(const IncidentRow& row) {
  return {
      {"crashCapturePolicy", "disabled_privacy"},
      {"id", TextValue(row.id)},
      {"reason", TextValue(row.reason)},
      {"sessionId", TextValue(row.session_id)},
      {"buildId", TextValue(row.build_id)},
      {"startedAtUtc", TextValue(row.started_at_utc)},
      {"endedAtUtc", TextValue(row.ended_at_utc)},
      {"importedAtUtc", TextValue(row.imported_at_utc)},
      {"markerState", TextValue(row.marker_state)},
      {"importState", TextValue(row.import_state)},
      {"reimportCount", row.reimport_count},
      {"crashOutputScan", TextValue(row.crash_output_scan)},
      {"processExitReason", TextValue(row.process_exit_reason)},
      {"processExitState", TextValue(row.process_exit_state)},
      {"shutdownIntent", TextValue(row.shutdown_intent)},
      {"shutdownLaterIntent", TextValue(row.shutdown_later_intent)},
      {"shutdownState", TextValue(row.shutdown_state)},
      {"closeCode", row.close_code ? EncodableValue(*row.close_code) : EncodableValue()},
      {"closeError", TextValue(row.close_error)},
      {"hasCrashOutput", row.has_crash_output},
      {"crashOutputBytes", row.crash_output_bytes},
      {"sessionLogBytes", row.session_log_bytes},
      {"totalBytes", row.total_bytes},
      {"acknowledged", row.acknowledged},
      {"crashOutputExcerpt", TextValue(row.crash_output_excerpt)},
      {"importErrors", TextList(row.import_errors)},
  };
}

}  // namespace

void MethodGetWindowsDiagnosticsEnabled(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(EncodableValue(LibboxLogBuffer::instance().getWindowsDiagnosticsEnabled()));
}

void MethodGetWindowsDiagnosticsFailure(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(TextValue(LibboxLogBuffer::instance().getWindowsDiagnosticsFailure()));
}

void MethodSetWindowsDiagnosticsEnabled(const Arguments& arguments, OwnedResult result) {
  LibboxLogBuffer& evidence = LibboxLogBuffer::instance();
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  const bool* enabled = FindArgument<bool>(arguments, "enabled");
  if (enabled == nullptr) {
    result->Error("INVALID_ARGUMENT", "Expected an enabled boolean");
    return;
  }
  const bool was_enabled = evidence.getWindowsDiagnosticsEnabled();
  std::string failure;
  const bool stored = evidence.setWindowsDiagnosticsEnabled(*enabled, &failure);
  if (stored && *enabled) {
    // A tunnel that is already up gets a session.
    if (!was_enabled && vpn.is_running) {
      evidence.beginSession();
    }
    evidence.recordBreadcrumb("diagnostics_enabled", /*throttled=*/false);
  }
  // No queued decision outlives a change of the switch, whatever came of it.
  ForgetPendingDiagnostics();
  if (stored) {
    result->Success(EncodableValue(*enabled));
  } else {
    result->Error("DIAGNOSTICS_PREFERENCE_FAILED", EnsureUtf8(failure));
  }
}

void MethodCheckForCrashLogs(const Arguments& /*arguments*/, OwnedResult result) {
  const auto summary = LibboxLogBuffer::instance().checkForCrashLogs();
  if (!summary) {
    result->Success();
    return;
  }
  result->Success(EncodableMap{{"summary", TextValue(summary->summary)},
                               {"logCount", summary->log_count},
                               {"lastLogs", TextList(summary->last_logs)}});
}

void MethodImportPendingIncidents(const Arguments& /*arguments*/, OwnedResult result) {
  std::string failure;
  const bool imported = LibboxLogBuffer::instance().importPendingIncidents(&failure);
  if (!imported && !failure.empty()) {
    result->Error("IMPORT_FAILED", EnsureUtf8(failure));
    return;
  }
  result->Success(EncodableValue(imported));
}

void MethodGetPendingIncidents(const Arguments& /*arguments*/, OwnedResult result) {
  LibboxLogBuffer& evidence = LibboxLogBuffer::instance();
  std::string failure;
  const std::vector<IncidentRow> rows = evidence.getPendingIncidents(&failure);
  if (!failure.empty()) {
    result->Error("ARCHIVE_UNREADABLE", EnsureUtf8(failure));
    return;
  }
  EncodableList incidents;
  for (const IncidentRow& row : rows) {
    incidents.push_back(IncidentMap(row));
  }
  result->Success(EncodableMap{
      {"archiveDir", TextValue(evidence.incidentsDirectory())},
      {"incidents", std::move(incidents)},
      {"evicted", TextList(evidence.evictedIncidents(kEvictedLimit))},
      {"evictedCount", evidence.evictedCount()},
  });
}

void MethodAcknowledgeIncident(const Arguments& arguments, OwnedResult result) {
  const std::string id = StringArgument(arguments, "incidentId");
  const auto* reimport_count = FindArgument<std::int32_t>(arguments, "reimportCount");
  if (id.empty() || reimport_count == nullptr) {
    result->Error(kInvalidArguments, "incidentId and reimportCount are required");
    return;
  }
  result->Success(
      EncodableValue(LibboxLogBuffer::instance().acknowledgeIncident(id, *reimport_count)));
}

void MethodRecordShutdownIntent(const Arguments& arguments, OwnedResult result) {
  const std::string reason = StringArgument(arguments, "reason");
  if (reason.empty()) {
    result->Error(kInvalidArguments, "reason is required");
    return;
  }
  // An unknown reason is recorded too, as unknown, and still answers false.
  LibboxLogBuffer::instance().recordShutdownIntent(reason);
  result->Success(EncodableValue(isKnownShutdownReason(reason)));
}

void MethodClearShutdownIntent(const Arguments& arguments, OwnedResult result) {
  const std::string reason = StringArgument(arguments, "reason");
  if (reason.empty()) {
    result->Error(kInvalidArguments, "reason is required");
    return;
  }
  result->Success(EncodableValue(LibboxLogBuffer::instance().clearShutdownIntent(reason)));
}

void MethodGetLibboxLogPath(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(TextValue(LibboxLogBuffer::instance().getLibboxLogPath()));
}

}  // namespace korvane
