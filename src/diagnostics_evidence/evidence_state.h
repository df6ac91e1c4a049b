// evidence_state.h: what the evidence keeps in memory.
//
// One record, owned by LibboxLogBuffer and guarded by its mutex. The functions of this room take it
// by reference from a caller that holds the mutex; none of them takes a lock. The paths are fixed
// at construction and may be read without it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace korvane {

struct EvidenceState {
  // Narrow paths, in the process code page; the two folders end in a separator.
  std::string base_dir;
  std::string incidents_dir;
  std::string failed_start_path;
  std::string shutdown_record_path;
  std::string session_log_path;
  std::string last_crash_path;
  std::string clean_shutdown_path;
  std::string session_active_path;

  // Id of the session begun last in this process; empty before the first.
  std::string session_id;
  // The boot import was run or declined.
  bool boot_import_done = false;
  // Why the last import stopped; empty after a clean one.
  std::string last_import_error;
  // Failed imports in a row at session start.
  std::int32_t consecutive_import_failures = 0;
  std::string build_id = "2.16.10+336";
  // Capture is on for this process.
  bool diagnostics_enabled = false;
  // Text of the last failure of the preference or of capture, for the user; empty when none.
  std::string diagnostics_failure;
  // Steady-clock milliseconds of the last throttled breadcrumb.
  std::int64_t last_throttled_breadcrumb_ms = 0;

  // The six files that lie flat in the root, in the order in which they are looked at.
  std::array<const std::string*, 6> FlatPaths() const {
    return {&session_log_path,    &last_crash_path,   &clean_shutdown_path,
            &session_active_path, &failed_start_path, &shutdown_record_path};
  }
};

// The paths below the evidence root: %APPDATA%\Korvane\, or .\Korvane\ when APPDATA is unset or
// empty. Everything else is as it starts.
EvidenceState MakeEvidenceState();

}  // namespace korvane
