// incident_classification.h: how a session ended, concluded from what it left behind.
//
// Pure: plain values in, plain values out. The first rule that applies decides the reason:
//
//   failed-start marker                                        failed_start
//   close failed, and the process was asked to exit            intentional_exit
//   close failed                                               unexplained
//   clean marker                                               clean
//   close completed, and no active marker                      clean
//   the process was asked to exit                              intentional_exit
//   close requested, by an intent that ends the process        intentional_exit
//   otherwise                                                  unexplained
//
// A failed close beats a clean marker; a leftover active marker keeps a completed close from
// counting as clean, for the process was seen running afterwards. A marker or a half of the record
// that belongs to another session classifies nothing and leaves a note.
#pragma once

#include <string>
#include <vector>

#include "diagnostics_evidence/shutdown_record.h"

namespace korvane {

// One marker as it was read. A torn one is present and has empty fields.
struct SessionMarker {
  bool present = false;
  std::string session_id;
  std::string build_id;
  std::string utc;
};

struct SessionTraces {
  SessionMarker active;
  SessionMarker clean;
  SessionMarker failed_start;
  ShutdownRecord record;                    // all empty when there is none
  std::vector<std::string> crash_sessions;  // of the crash-output files that lie flat
  std::string running_build;
};

struct SessionVerdict {
  std::string session_id;         // "unknown" when nothing tells
  std::string session_id_source;  // "marker", "crash_output_filename", "none"
  std::string build_id;
  std::string reason;
  std::string marker_state;  // "none", "failed_start", "clean_shutdown", "session_active"
  std::string app_started_at_utc;
  std::string app_ended_at_utc;
  std::vector<std::string> notes;  // about leftovers of other sessions
};

SessionVerdict ClassifySession(const SessionTraces& traces);

}  // namespace korvane
