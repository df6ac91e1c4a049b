#include "diagnostics_evidence/incident_classification.h"

#include <iterator>

namespace korvane {

namespace {

const std::string& FirstNonEmpty(std::initializer_list<const std::string*> texts) {
  static const std::string none;
  for (const std::string* text : texts) {
    if (!text->empty()) {
      return *text;
    }
  }
  return none;
}

void Identify(const SessionTraces& traces, SessionVerdict& verdict) {
  verdict.session_id = FirstNonEmpty({&traces.active.session_id, &traces.clean.session_id,
                                      &traces.failed_start.session_id, &traces.record.session_id});
  verdict.session_id_source = verdict.session_id.empty() ? "none" : "marker";
  if (verdict.session_id.empty() && traces.crash_sessions.size() == 1) {
    verdict.session_id = traces.crash_sessions[0];
    verdict.session_id_source = "crash_output_filename";
  }
  if (verdict.session_id.empty()) {
    verdict.session_id = "unknown";
  }
  verdict.build_id =
      FirstNonEmpty({&traces.active.build_id, &traces.record.build_id, &traces.running_build});
}

// What the record says of this session; a half that belongs to another one says nothing.
struct CountedRecord {
  std::string close_state;
  std::string result_at_utc;
  bool process_exit_requested = false;
};

CountedRecord Count(const ShutdownRecord& record, const std::string& session,
                    std::vector<std::string>& notes) {
  CountedRecord counted;
  if (record.session_id.empty() || record.session_id == session) {
    counted.close_state = record.state;
    counted.result_at_utc = record.result_at_utc;
  } else {
    notes.push_back("foreign_or_sessionless_intent: the shutdown record is owned by '" +
                    record.session_id + "', not " + session +
                    "; its close result classifies nothing here");
  }
  if (record.process_exit_session.empty() || record.process_exit_session == session) {
    counted.process_exit_requested =
        isProcessExitReason(record.process_exit_reason) && record.process_exit_state == "requested";
  } else {
    notes.push_back("foreign_or_sessionless_intent: the process-exit intent '" +
                    record.process_exit_reason + "' is owned by '" + record.process_exit_session +
                    "', not " + session + "; it classifies nothing here");
  }
  return counted;
}

bool IsValid(const SessionMarker& marker, const char* label, const std::string& session,
             std::vector<std::string>& notes) {
  if (!marker.present) {
    return false;
  }
  const std::string& owner = marker.session_id;
  if (owner.empty() || owner == "unknown" || owner == session) {
    return true;
  }
  notes.push_back(std::string(label) + " marker belongs to session " + owner + ", not " + session +
                  " (leftover, not used to classify)");
  return false;
}

struct ValidMarkers {
  bool clean = false;
  bool failed_start = false;
  bool active = false;
};

const char* MarkerState(const ValidMarkers& valid) {
  if (valid.failed_start) {
    return "failed_start";
  }
  if (valid.clean) {
    return "clean_shutdown";
  }
  return valid.active ? "session_active" : "none";
}

const char* Reason(const ValidMarkers& valid, const CountedRecord& counted,
                   const ShutdownRecord& record) {
  if (valid.failed_start) {
    return "failed_start";
  }
  if (counted.close_state == "failed") {
    return counted.process_exit_requested ? "intentional_exit" : "unexplained";
  }
  if (valid.clean || (counted.close_state == "completed" && !valid.active)) {
    return "clean";
  }
  if (counted.process_exit_requested ||
      (counted.close_state == "requested" && isProcessExitReason(record.reason))) {
    return "intentional_exit";
  }
  return "unexplained";
}

}  // namespace

SessionVerdict ClassifySession(const SessionTraces& traces) {
  SessionVerdict verdict;
  Identify(traces, verdict);
  const std::string& session = verdict.session_id;
  std::vector<std::string> foreign_notes;
  const CountedRecord counted = Count(traces.record, session, foreign_notes);
  ValidMarkers valid;
  valid.clean = IsValid(traces.clean, "clean-shutdown", session, verdict.notes);
  valid.failed_start = IsValid(traces.failed_start, "failed-start", session, verdict.notes);
  valid.active = IsValid(traces.active, "session-active", session, verdict.notes);
  verdict.notes.insert(verdict.notes.end(), std::make_move_iterator(foreign_notes.begin()),
                       std::make_move_iterator(foreign_notes.end()));
  verdict.marker_state = MarkerState(valid);
  verdict.reason = Reason(valid, counted, traces.record);
  if (valid.active) {
    verdict.app_started_at_utc = traces.active.utc;
  }
  if (valid.clean) {
    verdict.app_ended_at_utc = traces.clean.utc;
  } else if (valid.failed_start) {
    verdict.app_ended_at_utc = traces.failed_start.utc;
  } else {
    verdict.app_ended_at_utc = counted.result_at_utc;
  }
  return verdict;
}

}  // namespace korvane
