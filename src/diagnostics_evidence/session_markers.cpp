#include "diagnostics_evidence/session_markers.h"

#include <array>
#include <atomic>
#include <cstdio>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_import.h"
#include "diagnostics_evidence/journal.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/shutdown_record.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

std::string Marker(const EvidenceState& state) {
  const std::string session = state.session_id.empty() ? "unknown" : state.session_id;
  return R"({"schema":1,"utc":")" + UtcNow() + R"(","session_id":")" + jsonEscape(session) +
         R"(","build_id":")" + jsonEscape(state.build_id) + R"("})";
}

void RemoveActiveMarker(const EvidenceState& state) {
  platform::ErrorCode error = 0;
  if (!RemoveEvidenceFile(state.session_active_path, error)) {
    ReportEvidence("Failed to remove session marker: " + EvidenceErrorText(error));
  }
}

// The session of a record that says its close failed, when the record is about this one.
bool CloseFailed(const EvidenceState& state, std::string& record_session) {
  std::string text;
  if (!readBounded(state.shutdown_record_path, kShutdownRecordMaxBytes, text)) {
    return false;
  }
  const ShutdownRecord record = ParseShutdownRecord(text);
  record_session = record.session_id;
  return record.state == "failed" &&
         (state.session_id.empty() || record.session_id == state.session_id);
}

// A further session without a marker would lose more than the old identity is worth.
void AbandonDeferral(const EvidenceState& state) {
  const std::string line =
      UtcNow() + " marker_deferral_abandoned session=" + state.session_id +
      " consecutive_import_failures=" + std::to_string(state.consecutive_import_failures) +
      " (previous-session marker identity overwritten)";
  ReportEvidence(line);
  AppendToJournal(state, line);
}

std::string OsShutdownMarkerPath(const EvidenceState& state) {
  return state.base_dir + "os_shutdown_marker";
}

}  // namespace

std::string NewSessionId() {
  static std::atomic<std::uint32_t> count{0};
  const std::uint32_t number = ++count & 0xFF;
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04x%08x%02x", os().process->Id(),
                static_cast<std::uint32_t>(os().identifiers->PerformanceCounter()), number);
  return text.data();
}

void BeginSession(EvidenceState& state) {
  if (!state.diagnostics_enabled) {
    return;
  }
  const bool imported = importPreviousSession(state, "session_start");
  // Whatever the import did, so that a later intent belongs to this session.
  state.session_id = NewSessionId();
  if (imported) {
    state.consecutive_import_failures = 0;
  } else if (++state.consecutive_import_failures == 1) {
    ReportEvidence("DEFERRING the session marker for " + state.session_id +
                   ": previous-session evidence is still flat and its identity must not be "
                   "overwritten (attempt 1)");
    return;
  } else {
    AbandonDeferral(state);
  }
  if (!writeFileDurable(state.session_active_path, Marker(state))) {
    ReportEvidence("Session start marker unavailable; evidence for session " + state.session_id +
                   " may be unattributed");
  }
}

void MarkCleanShutdown(EvidenceState& state) {
  if (!state.diagnostics_enabled) {
    return;
  }
  std::string record_session;
  if (CloseFailed(state, record_session)) {
    ReportEvidence("Refusing clean-shutdown marker: engine close FAILED for session " +
                   record_session);
  } else if (!writeFileDurable(state.clean_shutdown_path, Marker(state))) {
    ReportEvidence(
        "Clean-shutdown marker not persisted; the next launch will classify this session as "
        "unexplained");
  }
  RemoveActiveMarker(state);
}

void MarkFailedStart(EvidenceState& state) {
  if (!state.diagnostics_enabled) {
    return;
  }
  if (!writeFileDurable(state.failed_start_path, Marker(state))) {
    ReportEvidence("failed_start marker not persisted");
  }
  RemoveActiveMarker(state);
}

void WriteOsShutdownMarker(const EvidenceState& state) {
  const std::string path = OsShutdownMarkerPath(state);
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kWriteExclusive);
  if (!file) {
    ReportEvidence("Failed to write OS shutdown marker: " + path +
                   " (error: " + std::to_string(file.error()) + ")");
    return;
  }
  static_cast<void>(
      os().files->Write(file.value(), std::to_string(os().clocks->UnixMilliseconds())));
  static_cast<void>(os().files->Flush(file.value()));
  static_cast<void>(os().files->Close(file.value()));
}

void ClearOsShutdownMarker(const EvidenceState& state) {
  static_cast<void>(os().files->RemoveFile(EvidencePath(OsShutdownMarkerPath(state))));
}

}  // namespace korvane
