// session_log.h: the line log of one engine session, and the names of crash-output files.
//
//   libbox_session.log          one breadcrumb per line: UTC time, blank, redacted text of at most
//   4096
//                               bytes, line feed; made by the first breadcrumb, so a session
//                               without one has none; moved into the incident by the next import
//   crash-output.<session>.log  written by the engine of an older build; its first line is a header
//
// A log above its size is rewritten to its last lines by a commit, so a crash leaves either
// version. It is trimmed by count: lines that are long may leave it above the size, and it is then
// rewritten at each append. Callers hold the evidence mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

inline constexpr std::uint64_t kSessionLogMaxBytes = 262'144;
inline constexpr std::size_t kSessionLogKeptLines = 512;
inline constexpr std::size_t kBreadcrumbMaxBytes = 4096;
inline constexpr std::int64_t kBreadcrumbThrottleMs = 30'000;

// Appends one breadcrumb. A throttled one that comes less than the interval behind the last is
// dropped before any work on its text. A failure is kept as diagnostics_failure.
void RecordBreadcrumb(EvidenceState& state, const std::string& text, bool throttled);

// Appends the line and, when the file is then above max_bytes, keeps its last keep_lines non-empty
// lines. False when the line was not written; a rotation that fails is said and tried again next
// time.
bool appendBoundedLog(const std::string& path, const std::string& line, std::uint64_t max_bytes,
                      std::size_t keep_lines);

// "crash-output." + session + ".log", with a session.
bool isCrashOutputName(std::string_view name);
// The session in such a name; empty for any other.
std::string crashOutputSession(std::string_view name);

// The text without header lines and blank lines, each kept line with a line feed.
std::string stripCrashOutputHeader(std::string_view text);

enum class CrashOutputScan { read_failed, header_only, fatal };

// Whether the first max_bytes hold anything behind the header. body_out (may be null) gets the
// stripped text. A file that isn't there counts as header_only.
CrashOutputScan scanCrashOutput(const std::string& path, std::size_t max_bytes,
                                std::string* body_out);

}  // namespace korvane
