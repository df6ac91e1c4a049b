// shutdown_record.h: what the host meant to do to a session, and what then happened.
//
// On disk: libbox_shutdown_record.json, one line without a line feed, replaced by a commit; read
// afresh by each operation. Without it a process that went down on purpose would look like a crash.
// Two halves with two owners and two lifetimes:
//
//   the VPN half, owned by session_id             the process-exit half, owned by
//   process_exit_session empty      > requested      intent            set, overwritten or cleared
//   by its owner; never requested  > requested      intent again      touched by a close result
//   requested  > completed      close result
//              > failed
//   requested  > empty          cleared with the same reason
//   completed, failed           an intent of the owner goes to later_intent; another session's
//   takes
//                               the record over; clearing is refused
//   any                         another session's late close result is ignored
//
// The import reads the record and deletes it. Callers hold the evidence mutex; with capture off
// nothing is done. What is refused or can't be written is said on the error stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

inline constexpr std::size_t kShutdownRecordMaxBytes = 8192;
inline constexpr std::size_t kCloseErrorMaxBytes = 512;

struct ShutdownRecord {
  std::string session_id;
  std::string build_id;
  std::string process_exit_session;
  std::string process_exit_reason;
  std::string process_exit_state;
  std::string process_exit_at_utc;
  std::string reason;
  std::string state;
  std::string requested_at_utc;
  std::string result_at_utc;
  std::string later_intent;
  std::string later_intent_at_utc;
  std::optional<std::int32_t> close_code;
  std::string close_error;  // redacted on every write and every read
};

// The nine reasons, and the four of them by which the whole process goes away.
bool isKnownShutdownReason(const std::string& reason);
bool isProcessExitReason(const std::string& reason);

ShutdownRecord ParseShutdownRecord(std::string_view text);
std::string FormatShutdownRecord(const ShutdownRecord& record);

void RecordShutdownIntent(EvidenceState& state, const std::string& reason);

// True when the intent was cleared, or when capture is off.
bool ClearShutdownIntent(EvidenceState& state, const std::string& reason);

void RecordCloseResult(EvidenceState& state, const std::string& session_id, bool success,
                       std::optional<std::int32_t> close_code, const std::string& close_error);

}  // namespace korvane
