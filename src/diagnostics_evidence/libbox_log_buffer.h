// libbox_log_buffer.h: the evidence of how each engine session ended.
//
// One process-wide object, reached through instance(), made on first use and never destroyed. All
// of it is opt-in: while capture is off every writer returns at once and no evidence exists on
// disk. Any thread; one non-recursive mutex is held through each whole public operation, and no
// other lock is taken inside it. No operation throws, and none ever fails a tunnel operation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_state.h"
#include "platform/mutex.h"

namespace korvane {

// One archived incident, as the interface lists it.
struct IncidentRow {
  std::string id;
  std::string reason;
  std::string session_id;
  std::string build_id;
  std::string started_at_utc;
  std::string ended_at_utc;
  std::string imported_at_utc;
  std::string marker_state;
  std::string shutdown_intent;
  std::string process_exit_reason;
  std::string process_exit_state;
  std::string import_state;
  std::string crash_output_scan;
  std::int32_t reimport_count = 0;
  std::string shutdown_later_intent;
  std::string shutdown_state;
  std::optional<std::int32_t> close_code;
  std::string close_error;
  bool has_crash_output = false;
  std::int64_t crash_output_bytes = 0;
  std::int64_t session_log_bytes = 0;
  std::int64_t total_bytes = 0;
  bool acknowledged = false;
  std::string crash_output_excerpt;
  std::vector<std::string> import_errors;
};

// What the interface shows once after a crash.
struct CrashSummary {
  std::string summary;
  std::int32_t log_count = 0;
  std::vector<std::string> last_logs;  // up to 5
};

class LibboxLogBuffer {
 public:
  static LibboxLogBuffer& instance();

  // Reads the preference, and clears what was kept when capture is off. The program uses instance()
  // alone; a test makes one for each process that it plays.
  LibboxLogBuffer();

  // Whether capture is on, and the user-visible text of the last failure (empty when none).
  bool getWindowsDiagnosticsEnabled() KORVANE_EXCLUDES(mutex_);
  std::string getWindowsDiagnosticsFailure() KORVANE_EXCLUDES(mutex_);
  // Stores the preference. On false, failure_out (may be null) tells why; capture is then off.
  bool setWindowsDiagnosticsEnabled(bool enabled, std::string* failure_out)
      KORVANE_EXCLUDES(mutex_);

  // The evidence root and the archive's folder, with trailing separators. No lock.
  std::string baseDirectory() const;
  std::string incidentsDirectory() const;
  // Id of the session that was begun last in this process; empty before the first.
  std::string currentSessionId() KORVANE_EXCLUDES(mutex_);
  // Path of the session log; empty while capture is off.
  std::string getLibboxLogPath() KORVANE_EXCLUDES(mutex_);

  // Appends one line to the session log. A throttled line is dropped when the last throttled one is
  // less than 30 s old.
  void recordBreadcrumb(const std::string& text, bool throttled) KORVANE_EXCLUDES(mutex_);

  // The life of a session: begun before the engine starts; ended by one of the two markers.
  void beginSession() KORVANE_EXCLUDES(mutex_);
  void markCleanShutdown() KORVANE_EXCLUDES(mutex_);
  void markFailedStart() KORVANE_EXCLUDES(mutex_);

  // The shutdown record: why the engine was stopped or the process goes away, and what came of it.
  void recordShutdownIntent(const std::string& reason) KORVANE_EXCLUDES(mutex_);
  bool clearShutdownIntent(const std::string& reason) KORVANE_EXCLUDES(mutex_);
  void recordCloseResult(const std::string& session_id, bool success,
                         std::optional<std::int32_t> close_code, const std::string& close_error)
      KORVANE_EXCLUDES(mutex_);

  // The marker of a system shutdown: written without a lock and whatever the preference is.
  void writeOsShutdownMarker();
  void clearOsShutdownMarker();

  // The boot import. On false, failure_out (may be null) tells why; empty when nothing was to do.
  bool importPendingIncidents(std::string* failure_out) KORVANE_EXCLUDES(mutex_);
  // The archive, newest first. A non-empty failure_out means that it could not be read.
  std::vector<IncidentRow> getPendingIncidents(std::string* failure_out) KORVANE_EXCLUDES(mutex_);
  bool acknowledgeIncident(const std::string& incident_id, std::int32_t reimport_count)
      KORVANE_EXCLUDES(mutex_);
  // Journal lines of evicted incidents, at most `limit` and a line about a journal fault on top.
  std::vector<std::string> evictedIncidents(std::size_t limit) KORVANE_EXCLUDES(mutex_);
  std::int32_t evictedCount() KORVANE_EXCLUDES(mutex_);
  // Reports the newest unexplained incident once. Platform thread only; the lock is held for the
  // listing alone, so an import on another thread may come in between.
  std::optional<CrashSummary> checkForCrashLogs() KORVANE_EXCLUDES(mutex_);

 private:
  // Its paths never change and may be read without the lock.
  const EvidenceState paths_;
  Mutex mutex_;
  EvidenceState state_ KORVANE_GUARDED_BY(mutex_);
};

// Whether a reason is one of the nine that the shutdown record knows.
bool isKnownShutdownReason(const std::string& reason);

}  // namespace korvane
