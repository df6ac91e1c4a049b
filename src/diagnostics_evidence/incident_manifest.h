// incident_manifest.h: the formats of one archived incident, written by templates and read back.
//
// An incident is a folder below the archive; its name is its id. What stands in it is its state:
//
//   pending  manifest.json  acknowledged     state                  the next import
//   yes      no             any              interrupted            writes a placeholder
//   yes      yes            any              unfinished, unlisted   resumes it, or removes pending
//                                                                   if nothing flat names it
//   no       no             any              unknown folder         writes a placeholder
//   no       yes            no               archived, unread       leaves it
//   no       yes            same generation  acknowledged           leaves it
//   no       yes            older            imported again since;  leaves it
//                                            listed as unread
//
//   manifest.json        committed by the import, one line without a line feed
//   pending              committed before anything is moved in, removed last
//   acknowledged         written durably, with the generation that the caller had seen
//   crash_log_consumed   written durably before the summary is made; never removed
//
// A commit leaves the old file or the new one. The keys of the nested "shutdown" object repeat none
// that stands above it, and the free texts stand last, because readers take the first occurrence of
// a key. Everything here is plain values and short reads; whoever reads or names files in an
// incident holds the evidence mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics_evidence/session_log.h"
#include "diagnostics_evidence/shutdown_record.h"

namespace korvane {

inline constexpr std::size_t kManifestMaxBytes = 16'384;
// Where the reason or the session alone is wanted.
inline constexpr std::size_t kManifestHeadMaxBytes = 8192;
inline constexpr std::size_t kSentinelMaxBytes = 4096;

inline constexpr char kManifestName[] = "manifest.json";
inline constexpr char kPendingName[] = "pending";
inline constexpr char kAcknowledgedName[] = "acknowledged";
inline constexpr char kCrashLogConsumedName[] = "crash_log_consumed";
inline constexpr char kArchivedSessionLogName[] = "session.log";
inline constexpr char kArchivedLastCrashName[] = "legacy_last_crash.log";

// The session of evidence that names none.
inline constexpr char kUnknownSession[] = "unknown";

// What a manifest says, in the order of its keys.
struct ManifestFields {
  std::string incident_id;
  std::string session_id;
  std::string session_id_source;  // "marker", "crash_output_filename" or "none"
  std::string build_id;
  std::string reason;  // "clean", "intentional_exit", "failed_start" or "unexplained"
  std::string reason_source = "import";
  std::int32_t reimport_count = 0;
  std::string reimport_observed_reason;
  std::string crash_output_ambiguous;
  std::string marker_state;
  std::string app_started_at_utc;
  std::string app_ended_at_utc;
  std::string imported_at_utc;
  std::string import_trigger;  // "session_start" or "boot"
  std::int64_t session_log_bytes = 0;
  bool has_crash_output = false;
  std::string crash_output_scan = "header_only";
  std::int64_t crash_output_bytes = 0;
  // As it was read, another session's included; the writer leaves out what that one alone owns.
  ShutdownRecord shutdown;
  std::vector<std::string> import_errors;
};

// The manifest of an import.
std::string writeIncidentManifest(const ManifestFields& fields);

// The manifest of a folder that an interrupted import left without one.
std::string writePlaceholderManifest(const std::string& incident_id, const std::string& session_id,
                                     const std::string& build_id,
                                     const std::string& imported_at_utc,
                                     const std::string& import_trigger);

// The manifest of an incident that was made for crash output alone. `shutdown_member` is copied as
// it stands; with an empty one there is no such key. The fields `shutdown`, `import_errors`,
// `reimport_observed_reason` and `crash_output_ambiguous` aren't looked at.
std::string writeOrphanManifest(const ManifestFields& fields, std::string_view shutdown_member,
                                bool first_reason_kept);

std::string writePendingSentinel(const std::string& incident_id, const std::string& session_id,
                                 const std::string& created_at_utc,
                                 const std::string& import_trigger);
std::string writeAcknowledgedSentinel(const std::string& acknowledged_at_utc,
                                      std::int32_t reimport_count);

// "fatal", "header_only" or "read_failed".
const char* CrashOutputScanWord(CrashOutputScan scan);

// The folder of an incident, with a trailing separator.
std::string IncidentDirectory(const std::string& incidents_dir, const std::string& incident_id);

// The id of a new incident: the present time, a hyphen and the session, in which each character
// that a file name can't hold is an underscore. A name that is taken, or can't be asked about, gets
// the endings "-2" to "-99"; the last is used even when it is taken.
std::string NewIncidentId(const std::string& incidents_dir, const std::string& session_id);

// A manifest on disk, as a later pass needs it.
struct EarlierManifest {
  std::string text;  // at most kManifestMaxBytes
  std::string reason;
  std::string reason_source;
  std::string imported_at_utc;
  std::int32_t reimport_count = 0;  // 0 when absent

  // The first classification stands, but for that of a placeholder.
  bool KeepsReason() const;
  // One more than its own.
  std::int32_t NextReimportCount() const;
};

// Nothing when it is absent or can't be read.
std::optional<EarlierManifest> ReadManifest(const std::string& incident_dir);

// Reads the manifest back: whether it is there and names this incident.
bool ManifestVerifies(const std::string& incident_dir, const std::string& incident_id);

// The key "shutdown" with its colon and its object, as it stands in the text; empty when there is
// none or it is cut. A view into the text.
std::string_view FindShutdownMember(std::string_view manifest);

// The unescaped notes of "import_errors". Malformed text ends the reading and keeps what was read.
std::vector<std::string> ReadImportErrors(std::string_view manifest);

}  // namespace korvane
