#include "diagnostics_evidence/incident_import.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_moves.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_archive.h"
#include "diagnostics_evidence/incident_classification.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/journal.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/privacy_migration.h"
#include "diagnostics_evidence/retention.h"
#include "diagnostics_evidence/session_log.h"
#include "diagnostics_evidence/shutdown_record.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

// What stands in the archive before the import.
struct ArchiveScan {
  KnownSessions known_sessions;
  // Incidents with a manifest and a sentinel: id and session.
  std::vector<std::pair<std::string, std::string>> unfinished;
};

// The four files that say what became of the session, and whether each stood there at the start.
struct FlatFile {
  const std::string* path;
  bool present;
};

const char* YesNo(bool yes) { return yes ? "yes" : "no"; }

// Keeps why the import ended; the text goes to the error stream as well.
bool Abort(EvidenceState& state, const std::string& printed, const std::string& kept) {
  ReportEvidence(printed);
  state.last_import_error = kept;
  return false;
}

bool AbortScan(EvidenceState& state, const char* what, const std::string& error) {
  const std::string line = UtcNow() + " import_aborted " + what + " error=" + error;
  Abort(state, line, line);
  AppendToJournal(state, line);
  return false;
}

// The session that an incident belongs to: its sentinel says so even before there is a manifest.
std::string SessionOfIncident(const EvidenceState& state, const std::string& id, bool pending,
                              bool has_manifest) {
  std::string text;
  std::string session;
  if (pending && readBounded(IncidentFile(state, id, kPendingName), kSentinelMaxBytes, text)) {
    session = jsonStringField(text, "session_id");
  }
  if (session.empty() && has_manifest &&
      readBounded(IncidentFile(state, id, kManifestName), kManifestHeadMaxBytes, text)) {
    session = jsonStringField(text, "session_id");
  }
  return session;
}

bool WritePlaceholder(const EvidenceState& state, const std::string& id, const std::string& session,
                      const std::string& trigger) {
  const std::string text = writePlaceholderManifest(id, session.empty() ? kUnknownSession : session,
                                                    state.build_id, UtcNow(), trigger);
  if (commitFile(IncidentFile(state, id, kManifestName), text)) {
    return true;
  }
  ReportEvidence("Failed to recover manifest for " + id + "; incident stays pending");
  return false;
}

void ScanIncident(const EvidenceState& state, const std::string& id, const std::string& trigger,
                  ArchiveScan& scan) {
  const bool pending = EvidenceExists(IncidentFile(state, id, kPendingName));
  const auto manifest = os().files->Inspect(EvidencePath(IncidentFile(state, id, kManifestName)));
  const bool absent = manifest && manifest.value() == platform::EntryKind::kAbsent;
  const std::string session = SessionOfIncident(state, id, pending, !absent);
  if (!session.empty() && session != kUnknownSession) {
    AddKnownSession(scan.known_sessions, session, id);
  }
  if (absent && !WritePlaceholder(state, id, session, trigger)) {
    return;
  }
  // Where it can't be told whether there is a manifest, the sentinel alone may name the session.
  if (pending && manifest) {
    scan.unfinished.emplace_back(id, session);
  }
}

std::optional<ArchiveScan> ScanArchive(EvidenceState& state, const std::string& trigger) {
  std::vector<std::string> ids;
  std::string error;
  const bool listed = ListIncidents(state, ids, error);
  ArchiveScan scan;
  for (const std::string& id : ids) {
    ScanIncident(state, id, trigger, scan);
  }
  if (!listed) {
    AbortScan(state, "incidents_scan_incomplete", error);
    return std::nullopt;
  }
  return scan;
}

// The names of the crash-output files that lie flat.
std::optional<std::vector<std::string>> ScanRoot(EvidenceState& state) {
  const auto entries = os().files->List(EvidencePath(state.base_dir));
  if (!entries) {
    AbortScan(state, "base_scan_incomplete", EvidenceErrorText(entries.error()));
    return std::nullopt;
  }
  std::vector<std::string> crash_outputs;
  for (const platform::DirectoryEntry& entry : entries.value()) {
    std::string name = os().text->NarrowFromPath(entry.name);
    if (entry.kind == platform::EntryKind::kFile && isCrashOutputName(name)) {
      crash_outputs.push_back(std::move(name));
    }
  }
  return crash_outputs;
}

// An incident whose session nothing flat names any more is imported to its end.
void clearFinishedSentinels(const EvidenceState& state, const ArchiveScan& scan,
                            const std::vector<std::string>& exclusions) {
  for (const auto& [id, session] : scan.unfinished) {
    if (std::ranges::find(exclusions, session) != exclusions.end()) {
      continue;
    }
    platform::ErrorCode error = 0;
    if (!RemoveEvidenceFile(IncidentFile(state, id, kPendingName), error)) {
      ReportEvidence("Failed to clear pending sentinel for incident " + id + ": " +
                     EvidenceErrorText(error));
    }
  }
}

// One import, from the reading of the markers on.
class SessionImport {
 public:
  SessionImport(EvidenceState& state, const std::string& trigger, ArchiveScan scan,
                std::vector<std::string> crash_outputs)
      : state_(state),
        trigger_(trigger),
        scan_(std::move(scan)),
        crash_outputs_(std::move(crash_outputs)) {
    for (FlatFile& file : consumed_) {
      file.present = EvidenceExists(*file.path);
    }
  }

  bool Run() {
    if (NothingLiesFlat()) {
      clearFinishedSentinels(state_, scan_, {});
      return true;
    }
    if (!ReadTraces()) {
      return false;
    }
    verdict_ = ClassifySession(traces_);
    if (!OpenIncident()) {
      return false;
    }
    ResumeManifest();
    ArchiveFiles();
    if (!WriteManifest()) {
      return false;
    }
    if (context_.unmoved) {
      return Abort(state_,
                   "Incident " + Id() +
                       " has an unmoved source file; keeping the pending sentinel and ALL "
                       "previous-session markers for a retry",
                   "a source file could not be moved into the incident");
    }
    const bool consumed = ConsumeMarkers();
    Finish();
    return consumed;
  }

 private:
  bool NothingLiesFlat() const {
    return crash_outputs_.empty() &&
           std::ranges::none_of(consumed_, [](const FlatFile& file) { return file.present; }) &&
           !EvidenceExists(state_.session_log_path) && !EvidenceExists(state_.last_crash_path);
  }

  const std::string& Id() const { return manifest_.incident_id; }
  const std::string& Session() const { return verdict_.session_id; }
  std::string File(std::string_view name) const { return IncidentFile(state_, Id(), name); }

  bool ReadMarker(const FlatFile& file, SessionMarker& marker) const {
    marker.present = file.present;
    std::string text;
    if (!file.present) {
      return true;
    }
    if (!readBounded(*file.path, kSentinelMaxBytes, text)) {
      return false;
    }
    marker.session_id = jsonStringField(text, "session_id");
    marker.build_id = jsonStringField(text, "build_id");
    marker.utc = jsonStringField(text, "utc");
    return true;
  }

  bool ReadRecord(const FlatFile& file) {
    std::string text;
    if (!file.present) {
      return true;
    }
    if (!migrateEvidenceFile(*file.path) ||
        !readBounded(*file.path, kShutdownRecordMaxBytes, text)) {
      return false;
    }
    traces_.record = ParseShutdownRecord(text);
    return true;
  }

  // Half of the evidence would give a classification that is wrong for good.
  bool ReadTraces() {
    const char* unreadable = nullptr;
    const auto check = [&](bool read, const char* label) {
      unreadable = read ? unreadable : label;
    };
    check(ReadMarker(consumed_[kActive], traces_.active), "session-active");
    check(ReadMarker(consumed_[kClean], traces_.clean), "clean-shutdown");
    check(ReadMarker(consumed_[kFailedStart], traces_.failed_start), "failed-start");
    check(ReadRecord(consumed_[kRecord]), "shutdown-record");
    if (unreadable != nullptr) {
      const std::string label = unreadable;
      const std::string text =
          "import aborted: " + label +
          " marker exists but could not be read; sources untouched, retry at the next session "
          "boundary";
      Abort(state_, text, text);
      AppendToJournal(state_, UtcNow() + " import_aborted marker_unreadable " + label);
      return false;
    }
    for (const std::string& name : crash_outputs_) {
      traces_.crash_sessions.push_back(crashOutputSession(name));
    }
    traces_.running_build = state_.build_id;
    return true;
  }

  // The folder and the sentinel without which nothing may be moved.
  bool OpenIncident() {
    const auto known = scan_.known_sessions.find(Session());
    resumed_ = Session() != kUnknownSession && known != scan_.known_sessions.end();
    manifest_.incident_id =
        resumed_ ? known->second : NewIncidentId(state_.incidents_dir, Session());
    std::vector<std::string> exclusions = traces_.crash_sessions;
    exclusions.push_back(Session());
    clearFinishedSentinels(state_, scan_, exclusions);
    const std::string folder = IncidentFolder(state_, Id());
    if (!resumed_) {
      const auto made = os().files->CreateDirectories(EvidencePath(folder));
      if (!made) {
        const std::string error = EvidenceErrorText(made.error());
        return Abort(state_,
                     "Failed to create incident directory " + EnsureUtf8(folder) + " (" + error +
                         "); leaving previous-session evidence in place",
                     "incident directory could not be created: " + error);
      }
    }
    if (!commitFile(File(kPendingName),
                    writePendingSentinel(Id(), Session(), UtcNow(), trigger_))) {
      return Abort(state_,
                   "Pending sentinel not persisted for " + Id() +
                       "; leaving previous-session evidence in place",
                   "pending sentinel could not be written");
    }
    return true;
  }

  // Fills the manifest with the verdict, or with what an earlier pass concluded.
  void ResumeManifest() {
    manifest_.session_id = Session();
    manifest_.session_id_source = verdict_.session_id_source;
    manifest_.build_id = verdict_.build_id;
    manifest_.reason = verdict_.reason;
    manifest_.marker_state = verdict_.marker_state;
    manifest_.app_started_at_utc = verdict_.app_started_at_utc;
    manifest_.app_ended_at_utc = verdict_.app_ended_at_utc;
    manifest_.import_trigger = trigger_;
    manifest_.shutdown = traces_.record;
    context_.errors = verdict_.notes;
    if (resumed_) {
      context_.errors.emplace_back(
          "re-imported into the existing incident directory of this session (a previous import "
          "did not finish clearing its sources)");
      KeepEarlierManifest();
    }
    if (manifest_.imported_at_utc.empty()) {
      manifest_.imported_at_utc = UtcNow();
    }
  }

  void KeepEarlierManifest() {
    manifest_.reimport_count = 1;
    const auto earlier = ReadManifest(IncidentDirectory(state_.incidents_dir, Id()));
    if (!earlier) {
      return;
    }
    manifest_.imported_at_utc = earlier->imported_at_utc;
    manifest_.reimport_count = earlier->NextReimportCount();
    if (!earlier->KeepsReason()) {
      return;
    }
    if (earlier->reason != verdict_.reason) {
      ReportEvidence("Keeping archived reason '" + earlier->reason + "' for incident " + Id() +
                     "; this pass observed '" + verdict_.reason + "'");
      manifest_.reimport_observed_reason = verdict_.reason;
    }
    manifest_.reason = earlier->reason;
  }

  void ArchiveFiles() {
    context_.incident_dir = IncidentDirectory(state_.incidents_dir, Id());
    context_.session_id = Session();
    context_.import_trigger = trigger_;
    context_.known_sessions = &scan_.known_sessions;
    const EvidenceFound found = archiveEvidence(state_, context_, crash_outputs_);
    manifest_.session_log_bytes = found.session_log_bytes;
    manifest_.has_crash_output = found.has_crash_output;
    manifest_.crash_output_scan = found.crash_output_scan;
    manifest_.crash_output_bytes = found.crash_output_bytes;
    manifest_.crash_output_ambiguous = found.crash_output_ambiguous;
  }

  bool CommitManifest() {
    manifest_.import_errors = context_.errors;
    return commitFile(File(kManifestName), writeIncidentManifest(manifest_));
  }

  bool WriteManifest() {
    if (!CommitManifest()) {
      return Abort(state_,
                   "Failed to write manifest for incident " + Id() +
                       "; it stays pending and the previous-session markers are KEPT for the "
                       "next import",
                   "manifest could not be written");
    }
    if (!ManifestVerifies(context_.incident_dir, Id())) {
      return Abort(state_,
                   "Manifest for incident " + Id() +
                       " could not be verified after the write; it stays pending and the "
                       "previous-session markers are KEPT",
                   "manifest did not verify after the write");
    }
    return true;
  }

  bool ConsumeMarkers() {
    bool all_gone = true;
    for (const FlatFile& file : consumed_) {
      platform::ErrorCode error = 0;
      if (!file.present || RemoveEvidenceFile(*file.path, error)) {
        continue;
      }
      all_gone = false;
      const std::string note =
          "remove " + file.path->substr(state_.base_dir.size()) + ": " + EvidenceErrorText(error);
      ReportEvidence(note);
      context_.errors.push_back(note);
    }
    if (!all_gone && !CommitManifest()) {
      ReportEvidence("Failed to record consume errors in the manifest of incident " + Id());
    }
    return all_gone;
  }

  void Finish() {
    platform::ErrorCode error = 0;
    if (!RemoveEvidenceFile(File(kPendingName), error)) {
      ReportEvidence("Failed to clear pending sentinel for incident " + Id() + ": " +
                     EvidenceErrorText(error));
    }
    ReportEvidence(
        "Archived incident " + Id() + " reason=" + manifest_.reason +
        " marker=" + manifest_.marker_state + " crash_output=" + YesNo(manifest_.has_crash_output) +
        " resumed=" + YesNo(resumed_) + " import_errors=" + std::to_string(context_.errors.size()));
    applyRetention(state_);
  }

  enum : std::size_t { kActive, kClean, kFailedStart, kRecord };

  EvidenceState& state_;
  const std::string& trigger_;
  ArchiveScan scan_;
  std::vector<std::string> crash_outputs_;
  // In the order in which they are consumed at the end.
  std::array<FlatFile, 4> consumed_{{{&state_.session_active_path, false},
                                     {&state_.clean_shutdown_path, false},
                                     {&state_.failed_start_path, false},
                                     {&state_.shutdown_record_path, false}}};
  SessionTraces traces_;
  SessionVerdict verdict_;
  bool resumed_ = false;
  ManifestFields manifest_;
  MoveContext context_;
};

}  // namespace

bool importPreviousSession(EvidenceState& state, const std::string& trigger) {
  if (!state.diagnostics_enabled) {  // coverage: whoever calls it has asked already
    return false;
  }
  state.last_import_error.clear();
  const auto made = os().files->CreateDirectories(EvidencePath(state.incidents_dir));
  if (!made) {
    const std::string error = EvidenceErrorText(made.error());
    return Abort(state,
                 "Incidents directory unavailable (" + error +
                     "); previous-session evidence cannot be archived",
                 "incidents directory unavailable: " + error);
  }
  auto scan = ScanArchive(state, trigger);
  if (!scan) {
    return false;
  }
  auto crash_outputs = ScanRoot(state);
  if (!crash_outputs) {
    return false;
  }
  return SessionImport(state, trigger, std::move(*scan), std::move(*crash_outputs)).Run();
}

bool ImportAtBoot(EvidenceState& state, std::string& failure) {
  failure.clear();
  if (!state.diagnostics_enabled || std::exchange(state.boot_import_done, true)) {
    return false;
  }
  if (!state.session_id.empty()) {
    ReportEvidence("Declining the boot import ('boot'): session " + state.session_id +
                   " has already started in this process");
    return false;
  }
  const bool imported = importPreviousSession(state, "boot");
  if (!imported) {
    failure = state.last_import_error;
  }
  return imported;
}

}  // namespace korvane
