#include "diagnostics_evidence/shutdown_record.h"

#include <algorithm>
#include <array>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

constexpr char kRequested[] = "requested";
constexpr char kCompleted[] = "completed";
constexpr char kFailed[] = "failed";
constexpr char kUnknown[] = "unknown";

struct Reason {
  std::string_view name;
  bool ends_process;
};

constexpr std::array<Reason, 9> kReasons = {{
    {"user_disconnect", false},
    {"tray_quit", true},
    {"updater", true},
    {"elevation_handoff", true},
    {"os_shutdown", true},
    {"failed_start", false},
    {"reconnect_teardown", false},
    {"node_switch", false},
    {kUnknown, false},
}};

const Reason* FindReason(const std::string& reason) {
  const auto* found = std::find_if(kReasons.begin(), kReasons.end(),
                                   [&](const Reason& known) { return known.name == reason; });
  return found != kReasons.end() ? found : nullptr;
}

std::string RedactedCloseError(const std::string& text) {
  return redactDiagnosticText(EnsureUtf8(text)).substr(0, kCloseErrorMaxBytes);
}

std::string CallerOf(const EvidenceState& state) {
  return state.session_id.empty() ? "<no-session>" : state.session_id;
}

bool HoldsResult(const ShutdownRecord& record) {
  return record.state == kCompleted || record.state == kFailed;
}

// The file's text; empty when it is absent or can't be read.
std::string ReadRecordText(const EvidenceState& state) {
  std::string text;
  static_cast<void>(readBounded(state.shutdown_record_path, kShutdownRecordMaxBytes, text));
  return text;
}

bool WriteRecord(const EvidenceState& state, const ShutdownRecord& record) {
  return commitFile(state.shutdown_record_path, FormatShutdownRecord(record));
}

void WriteIntent(const EvidenceState& state, const ShutdownRecord& record, const char* what,
                 const std::string& reason, const std::string& caller) {
  if (!WriteRecord(state, record)) {
    ReportEvidence(what + (" '" + reason) + "' not persisted for session " + caller);
  }
}

void TakeOver(ShutdownRecord& record, const std::string& caller) {
  record.session_id = caller;
  record.later_intent.clear();
  record.later_intent_at_utc.clear();
}

// Deletes a record of which nothing is left, or writes what is left.
bool StoreReduced(const EvidenceState& state, const ShutdownRecord& record, bool empty) {
  if (!empty) {
    return WriteRecord(state, record);
  }
  platform::ErrorCode error = 0;
  if (RemoveEvidenceFile(state.shutdown_record_path, error)) {
    return true;
  }
  ReportEvidence("Failed to clear shutdown record: " + platform::os().text->ErrorMessage(error));
  return false;
}

bool ClearProcessExit(const EvidenceState& state, ShutdownRecord& record,
                      const std::string& reason) {
  const std::string caller = CallerOf(state);
  if (!record.process_exit_session.empty() && record.process_exit_session != caller) {
    ReportEvidence("Not clearing a process-exit intent owned by " + record.process_exit_session +
                   ": this caller is " + caller);
    return false;
  }
  if (record.process_exit_reason != reason) {
    ReportEvidence("Not clearing process-exit intent '" + record.process_exit_reason +
                   "': caller expected '" + reason + "'");
    return false;
  }
  record.process_exit_session.clear();
  record.process_exit_reason.clear();
  record.process_exit_state.clear();
  record.process_exit_at_utc.clear();
  return StoreReduced(state, record, record.reason.empty() && record.state.empty());
}

bool ClearVpnIntent(const EvidenceState& state, ShutdownRecord& record, const std::string& reason) {
  if (record.state != kRequested) {
    ReportEvidence("Not clearing shutdown record in state '" + record.state +
                   "' \u2014 it holds a close result");
    return false;
  }
  if (record.reason != reason) {
    ReportEvidence("Not clearing shutdown intent '" + record.reason + "': caller expected '" +
                   reason + "'");
    return false;
  }
  record.reason.clear();
  record.state.clear();
  record.requested_at_utc.clear();
  return StoreReduced(state, record, record.process_exit_reason.empty());
}

}  // namespace

bool isKnownShutdownReason(const std::string& reason) { return FindReason(reason) != nullptr; }

bool isProcessExitReason(const std::string& reason) {
  const Reason* found = FindReason(reason);
  return found != nullptr && found->ends_process;
}

ShutdownRecord ParseShutdownRecord(std::string_view text) {
  ShutdownRecord record;
  record.session_id = jsonStringField(text, "session_id");
  record.build_id = jsonStringField(text, "build_id");
  record.process_exit_session = jsonStringField(text, "process_exit_session");
  record.process_exit_reason = jsonStringField(text, "process_exit_reason");
  record.process_exit_state = jsonStringField(text, "process_exit_state");
  record.process_exit_at_utc = jsonStringField(text, "process_exit_at_utc");
  record.reason = jsonStringField(text, "reason");
  record.state = jsonStringField(text, "state");
  record.requested_at_utc = jsonStringField(text, "requested_at_utc");
  record.result_at_utc = jsonStringField(text, "result_at_utc");
  record.later_intent = jsonStringField(text, "later_intent");
  record.later_intent_at_utc = jsonStringField(text, "later_intent_at_utc");
  record.close_code = jsonIntField(text, "close_code");
  // An older build stored it raw.
  record.close_error = redactDiagnosticText(jsonStringField(text, "close_error"));
  return record;
}

std::string FormatShutdownRecord(const ShutdownRecord& record) {
  std::string text = "{\"schema\":1";
  const auto add = [&text](const char* key, const std::string& value) {
    text += std::string(",\"") + key + "\":\"" + jsonEscape(value) + "\"";
  };
  add("session_id", record.session_id);
  add("build_id", record.build_id);
  add("process_exit_session", record.process_exit_session);
  add("process_exit_reason", record.process_exit_reason);
  add("process_exit_state", record.process_exit_state);
  add("process_exit_at_utc", record.process_exit_at_utc);
  add("reason", record.reason);
  add("state", record.state);
  add("requested_at_utc", record.requested_at_utc);
  add("result_at_utc", record.result_at_utc);
  add("later_intent", record.later_intent);
  add("later_intent_at_utc", record.later_intent_at_utc);
  if (record.close_code) {
    text += ",\"close_code\":" + std::to_string(*record.close_code);
  }
  add("close_error", redactDiagnosticText(record.close_error));
  return text + "}";
}

void RecordShutdownIntent(EvidenceState& state, const std::string& given) {
  if (!state.diagnostics_enabled) {
    return;
  }
  std::string reason = given;
  if (!isKnownShutdownReason(reason)) {
    ReportEvidence("Unknown shutdown reason '" + given + "', recording as unknown");
    reason = kUnknown;
  }
  const std::string caller = CallerOf(state);
  ShutdownRecord record = ParseShutdownRecord(ReadRecordText(state));
  const bool owned = record.session_id.empty() || record.session_id == caller;
  if (record.session_id.empty()) {
    record.session_id = caller;
  }
  record.build_id = state.build_id;

  if (isProcessExitReason(reason)) {
    // The VPN half stays, also when another session owns it.
    record.process_exit_reason = reason;
    record.process_exit_state = kRequested;
    record.process_exit_at_utc = UtcNow();
    record.process_exit_session = caller;
    WriteIntent(state, record, "Process-exit intent", reason, caller);
    return;
  }
  if (HoldsResult(record) && owned) {
    record.later_intent = reason;
    record.later_intent_at_utc = UtcNow();
    WriteIntent(state, record, "Later shutdown intent", reason, caller);
    return;
  }
  if (!owned) {
    TakeOver(record, caller);
  }
  record.reason = reason;
  record.state = kRequested;
  record.requested_at_utc = UtcNow();
  record.result_at_utc.clear();
  record.close_code.reset();
  record.close_error.clear();
  WriteIntent(state, record, "Shutdown intent", reason, caller);
}

bool ClearShutdownIntent(EvidenceState& state, const std::string& reason) {
  if (!state.diagnostics_enabled) {
    return true;
  }
  const std::string text = ReadRecordText(state);
  if (text.empty()) {
    return false;
  }
  if (reason.empty()) {
    ReportEvidence("Refusing to clear a shutdown intent without a reason");
    return false;
  }
  ShutdownRecord record = ParseShutdownRecord(text);
  return isProcessExitReason(reason) ? ClearProcessExit(state, record, reason)
                                     : ClearVpnIntent(state, record, reason);
}

void RecordCloseResult(EvidenceState& state, const std::string& session_id, bool success,
                       std::optional<std::int32_t> close_code, const std::string& close_error) {
  if (!state.diagnostics_enabled) {
    return;
  }
  const std::string text = ReadRecordText(state);
  ShutdownRecord record = ParseShutdownRecord(text);
  // A close that returns after the next session began must not overwrite that session's record.
  if (!text.empty() && !record.session_id.empty() && !session_id.empty() &&
      record.session_id != session_id) {
    ReportEvidence("Ignoring late close result for session " + session_id +
                   "; record is owned by " + record.session_id);
    return;
  }
  if (!isKnownShutdownReason(record.reason) || isProcessExitReason(record.reason)) {
    record.reason = kUnknown;
  }
  const std::string now = UtcNow();
  if (record.requested_at_utc.empty()) {
    record.requested_at_utc = now;
  }
  record.session_id = session_id.empty() ? kUnknown : session_id;
  record.build_id = state.build_id;
  record.state = success ? kCompleted : kFailed;
  record.result_at_utc = now;
  record.close_code = close_code;
  record.close_error = RedactedCloseError(close_error);
  if (!WriteRecord(state, record)) {
    ReportEvidence("Shutdown result (" + record.state + ") not persisted for session " +
                   session_id);
  }
}

}  // namespace korvane
