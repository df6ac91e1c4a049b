#include "diagnostics_evidence/libbox_log_buffer.h"

#include "diagnostics_evidence/crash_summary.h"
#include "diagnostics_evidence/diagnostics_preference.h"
#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/incident_import.h"
#include "diagnostics_evidence/incident_listing.h"
#include "diagnostics_evidence/journal.h"
#include "diagnostics_evidence/session_log.h"
#include "diagnostics_evidence/session_markers.h"
#include "diagnostics_evidence/shutdown_record.h"
#include "flutter_boundary/utf8.h"
#include "platform/no_destructor.h"
#include "platform/os.h"

namespace korvane {

namespace {

void HandOut(const std::string& failure, std::string* failure_out) {
  if (failure_out != nullptr) {
    *failure_out = failure;
  }
}

}  // namespace

LibboxLogBuffer& LibboxLogBuffer::instance() {
  static NoDestructor<LibboxLogBuffer> buffer;
  return *buffer;
}

LibboxLogBuffer::LibboxLogBuffer() : paths_(MakeEvidenceState()), state_(paths_) {
  const auto made = platform::os().files->CreateDirectories(EvidencePath(paths_.base_dir));
  if (!made) {
    ReportEvidence("Failed to create directory: " + EnsureUtf8(paths_.base_dir) + " (" +
                   EvidenceErrorText(made.error()) + ")");
  }
  LoadDiagnosticsPreference(state_);
}

bool LibboxLogBuffer::getWindowsDiagnosticsEnabled() {
  const MutexLock lock(mutex_);
  return state_.diagnostics_enabled;
}

std::string LibboxLogBuffer::getWindowsDiagnosticsFailure() {
  const MutexLock lock(mutex_);
  return state_.diagnostics_failure;
}

bool LibboxLogBuffer::setWindowsDiagnosticsEnabled(bool enabled, std::string* failure_out) {
  const MutexLock lock(mutex_);
  const bool stored = StoreDiagnosticsPreference(state_, enabled);
  HandOut(state_.diagnostics_failure, failure_out);
  return stored;
}

std::string LibboxLogBuffer::baseDirectory() const { return paths_.base_dir; }
std::string LibboxLogBuffer::incidentsDirectory() const { return paths_.incidents_dir; }

std::string LibboxLogBuffer::currentSessionId() {
  const MutexLock lock(mutex_);
  return state_.session_id;
}

std::string LibboxLogBuffer::getLibboxLogPath() {
  const MutexLock lock(mutex_);
  return state_.diagnostics_enabled ? state_.session_log_path : std::string();
}

void LibboxLogBuffer::recordBreadcrumb(const std::string& text, bool throttled) {
  const MutexLock lock(mutex_);
  RecordBreadcrumb(state_, text, throttled);
}

void LibboxLogBuffer::beginSession() {
  const MutexLock lock(mutex_);
  BeginSession(state_);
}

void LibboxLogBuffer::markCleanShutdown() {
  const MutexLock lock(mutex_);
  MarkCleanShutdown(state_);
}

void LibboxLogBuffer::markFailedStart() {
  const MutexLock lock(mutex_);
  MarkFailedStart(state_);
}

void LibboxLogBuffer::recordShutdownIntent(const std::string& reason) {
  const MutexLock lock(mutex_);
  RecordShutdownIntent(state_, reason);
}

bool LibboxLogBuffer::clearShutdownIntent(const std::string& reason) {
  const MutexLock lock(mutex_);
  return ClearShutdownIntent(state_, reason);
}

void LibboxLogBuffer::recordCloseResult(const std::string& session_id, bool success,
                                        std::optional<std::int32_t> close_code,
                                        const std::string& close_error) {
  const MutexLock lock(mutex_);
  RecordCloseResult(state_, session_id, success, close_code, close_error);
}

void LibboxLogBuffer::writeOsShutdownMarker() { WriteOsShutdownMarker(paths_); }
void LibboxLogBuffer::clearOsShutdownMarker() { ClearOsShutdownMarker(paths_); }

bool LibboxLogBuffer::importPendingIncidents(std::string* failure_out) {
  const MutexLock lock(mutex_);
  std::string failure;
  const bool imported = ImportAtBoot(state_, failure);
  HandOut(failure, failure_out);
  return imported;
}

std::vector<IncidentRow> LibboxLogBuffer::getPendingIncidents(std::string* failure_out) {
  const MutexLock lock(mutex_);
  std::string failure;
  auto rows = ListIncidentRows(state_, failure);
  HandOut(failure, failure_out);
  return rows;
}

bool LibboxLogBuffer::acknowledgeIncident(const std::string& incident_id,
                                          std::int32_t reimport_count) {
  const MutexLock lock(mutex_);
  return AcknowledgeIncident(state_, incident_id, reimport_count);
}

std::vector<std::string> LibboxLogBuffer::evictedIncidents(std::size_t limit) {
  const MutexLock lock(mutex_);
  return RecentJournalLines(state_, limit);
}

std::int32_t LibboxLogBuffer::evictedCount() {
  const MutexLock lock(mutex_);
  return static_cast<std::int32_t>(EvictionTotal(state_));
}

std::optional<CrashSummary> LibboxLogBuffer::checkForCrashLogs() {
  return SummariseNewestCrash(paths_.incidents_dir, getPendingIncidents(nullptr));
}

}  // namespace korvane
