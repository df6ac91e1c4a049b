// crash_summary.h: one sentence and a few lines about the newest crash, told once.
//
//   crash_log_consumed in the incident   its UTC time; written durably before the log is read, so
//                                        that a crash in between loses a report and never repeats
//                                        one; it stays for the incident's life
//
// Runs on the platform thread without the evidence mutex; two threads at once could both report
// one incident. What isn't reported for a failure is said on the error stream.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagnostics_evidence/libbox_log_buffer.h"

namespace korvane {

struct CrashLogEntry {
  std::string time;
  std::string msg;  // redacted
  std::string level = "info";
};

// The entries of a log, which is migrated first: a JSON object's "level", "msg" and "time", or a
// plain line with its level guessed from its words. None when the log can't be cleaned or read.
std::vector<CrashLogEntry> parseCrashLog(const std::string& path);

// The message of the last entry with the level "error" or "fatal", else of the last that holds a
// telling word, else of the last.
std::string summarise(const std::vector<CrashLogEntry>& entries);

// Reports the first unexplained row that wasn't reported yet. Rows come newest first. Nothing when
// there is none, or when that one can't be marked or has no log; an older one then waits for the
// next call.
std::optional<CrashSummary> SummariseNewestCrash(const std::string& incidents_dir,
                                                 const std::vector<IncidentRow>& rows);

}  // namespace korvane
