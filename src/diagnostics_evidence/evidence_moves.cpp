#include "diagnostics_evidence/evidence_moves.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_archive.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/privacy_migration.h"
#include "diagnostics_evidence/session_log.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

std::string FileName(const std::string& path) {
  return os().text->NarrowFromPath(EvidencePath(path).filename());
}

void AddPrinted(MoveContext& context, const std::string& error) {
  ReportEvidence(error);
  context.errors.push_back(error);
}

// A size that can't be read counts as 0.
std::int64_t SizeOrZero(const std::string& path) {
  const auto size = os().files->SizeOf(EvidencePath(path));
  return size ? static_cast<std::int64_t>(size.value()) : 0;
}

// The first name of "stem.n.ext" that is free or can't be asked about; the last even when taken.
std::string FragmentName(const std::string& directory, const std::string& target_name) {
  constexpr int kLastFragment = 99;
  const std::size_t dot = std::min(target_name.rfind('.'), target_name.size());
  const std::string stem = target_name.substr(0, dot) + '.';
  const std::string extension = target_name.substr(dot);
  std::string name;
  for (int n = 2; n <= kLastFragment; ++n) {
    name.assign(stem).append(std::to_string(n)).append(extension);
    const auto kind = os().files->Inspect(EvidencePath(directory + name));
    if (!kind || kind.value() == platform::EntryKind::kAbsent) {
      break;
    }
  }
  return name;
}

void ArchiveOwnAndOrphaned(const EvidenceState& state, MoveContext& context,
                           const std::vector<std::string>& flat_crash_outputs) {
  std::vector<std::string> orphans;
  for (const std::string& name : flat_crash_outputs) {
    const std::string session = crashOutputSession(name);
    if (session == context.session_id) {
      // What it may overwrite can only be the same session's.
      static_cast<void>(moveIntoIncident(context, state.base_dir + name, name));
    } else {
      orphans.push_back(name);
    }
  }
  for (const std::string& name : orphans) {
    const std::string session = crashOutputSession(name);
    if (!archiveOrphanCrashOutput(state, context, session, state.base_dir + name)) {
      context.unmoved = true;
      context.errors.push_back("crash output of session " + session +
                               " could not be archived on its own; retrying on the next start");
    }
  }
}

// Cleans what an earlier import left, and gives the names of the crash output in the incident.
std::vector<std::string> MigrateArchived(MoveContext& context) {
  std::vector<std::string> crash_outputs;
  const auto entries = os().files->List(EvidencePath(context.incident_dir));
  if (!entries) {
    AddPrinted(context,
               "scan of the incident directory failed: " + EvidenceErrorText(entries.error()) +
                   " (crash-output evidence may be undercounted)");
    return crash_outputs;
  }
  for (const platform::DirectoryEntry& entry : entries.value()) {
    if (entry.kind != platform::EntryKind::kFile) {
      continue;
    }
    const std::string name = os().text->NarrowFromPath(entry.name);
    if (!migrateEvidenceFile(context.incident_dir + name)) {
      context.unmoved = true;
      context.errors.emplace_back("archived privacy migration failed; payload withheld");
    }
    if (isCrashOutputName(name)) {
      crash_outputs.push_back(name);
    }
  }
  return crash_outputs;
}

void NoteAmbiguity(MoveContext& context, const std::vector<std::string>& crash_outputs,
                   EvidenceFound& found) {
  if (context.session_id != kUnknownSession || crash_outputs.size() < 2) {
    return;
  }
  for (const std::string& name : crash_outputs) {
    found.crash_output_ambiguous += (found.crash_output_ambiguous.empty() ? "" : " ") + name;
  }
  context.errors.push_back(
      "session unknown and " + std::to_string(crash_outputs.size()) +
      " crash-output files present; none adopted: " + found.crash_output_ambiguous);
}

// Among several files the last that is fatal or unreadable sets the word.
void CountCrashOutput(MoveContext& context, const std::string& name, EvidenceFound& found) {
  const std::string path = context.incident_dir + name;
  const CrashOutputScan scan = scanCrashOutput(path, kCrashScanBytes, nullptr);
  if (scan == CrashOutputScan::header_only) {
    return;
  }
  found.crash_output_scan = CrashOutputScanWord(scan);
  if (scan == CrashOutputScan::fatal) {
    found.has_crash_output = true;
    found.crash_output_bytes += SizeOrZero(path);
  } else {
    context.errors.push_back("evidence_read_error: " + name +
                             " is present but could not be read; this incident is withheld until "
                             "it can be");
  }
}

void CountCrashOutputs(MoveContext& context, const std::vector<std::string>& crash_outputs,
                       EvidenceFound& found) {
  NoteAmbiguity(context, crash_outputs, found);
  for (const std::string& name : crash_outputs) {
    const std::string session = crashOutputSession(name);
    if (isAttributed(session, context.session_id, crash_outputs.size())) {
      CountCrashOutput(context, name, found);
    } else if (found.crash_output_ambiguous.empty()) {
      context.errors.push_back("crash-output of session " + session + " archived with session " +
                               context.session_id + " (not attributed)");
    }
  }
}

// One orphan on its way into its incident.
struct Orphan {
  const EvidenceState& state;
  const std::string& session;
  const std::string& path;
  const std::string& import_trigger;
  bool existing;
  std::string incident_id;
  std::string directory;
};

bool Failed(const std::string& text) {
  ReportEvidence(text);
  return false;
}

bool OpenIncident(const Orphan& orphan) {
  if (!orphan.existing) {
    const auto made = os().files->CreateDirectories(EvidencePath(orphan.directory));
    if (!made) {
      return Failed("Could not create the incident directory for orphan session " + orphan.session +
                    ": " + EvidenceErrorText(made.error()));
    }
  }
  const std::string sentinel =
      writePendingSentinel(orphan.incident_id, orphan.session, UtcNow(), orphan.import_trigger);
  if (!commitFile(orphan.directory + kPendingName, sentinel)) {
    return Failed("Sentinel not persisted for orphan session " + orphan.session +
                  "; its crash output stays flat");
  }
  return true;
}

bool MoveOrphan(const Orphan& orphan, const std::string& target) {
  if (!migrateEvidenceFile(orphan.path)) {
    return false;
  }
  const auto moved = os().files->Rename(EvidencePath(orphan.path), EvidencePath(target));
  if (!moved) {
    return Failed("Could not move " + FileName(orphan.path) +
                  " to its own incident: " + EvidenceErrorText(moved.error()));
  }
  return true;
}

void TakeOverClassification(ManifestFields& fields, const EarlierManifest& earlier) {
  const auto kept = [&](const char* key) { return jsonStringField(earlier.text, key); };
  fields.reason = earlier.reason;
  fields.reason_source = earlier.reason_source;
  fields.session_id_source = kept("session_id_source");
  fields.build_id = kept("build_id");
  fields.marker_state = kept("marker_state");
  fields.app_started_at_utc = kept("app_started_at_utc");
  fields.app_ended_at_utc = kept("app_ended_at_utc");
  fields.imported_at_utc = earlier.imported_at_utc;
  fields.import_trigger = kept("import_trigger");
  fields.session_log_bytes = jsonIntField(earlier.text, "session_log_bytes").value_or(0);
}

// The manifest that the orphan's incident gets, made of an earlier one when there is one.
std::string OrphanManifestText(const Orphan& orphan, CrashOutputScan scan, std::int64_t bytes) {
  std::optional<EarlierManifest> earlier;
  if (orphan.existing) {
    earlier = ReadManifest(orphan.directory);
  }
  ManifestFields fields;
  fields.incident_id = orphan.incident_id;
  fields.session_id = orphan.session;
  fields.session_id_source = "crash_output_filename";
  fields.build_id = orphan.state.build_id;
  fields.reason = "unexplained";
  fields.marker_state = "none";
  fields.imported_at_utc = UtcNow();
  fields.import_trigger = orphan.import_trigger;
  fields.has_crash_output = scan == CrashOutputScan::fatal;
  fields.crash_output_scan = CrashOutputScanWord(scan);
  fields.crash_output_bytes = bytes;
  if (orphan.existing) {
    fields.reimport_count = earlier.value_or(EarlierManifest()).NextReimportCount();
  }
  if (!earlier || !earlier->KeepsReason()) {
    return writeOrphanManifest(fields, {}, false);
  }
  TakeOverClassification(fields, *earlier);
  return writeOrphanManifest(fields, FindShutdownMember(earlier->text), true);
}

bool ConcludeOrphan(const Orphan& orphan, const std::string& manifest) {
  if (!commitFile(orphan.directory + kManifestName, manifest)) {
    return Failed("Manifest not written for orphan incident " + orphan.incident_id);
  }
  if (!ManifestVerifies(orphan.directory, orphan.incident_id)) {
    return Failed("Manifest for orphan incident " + orphan.incident_id + " did not verify");
  }
  platform::ErrorCode error = 0;
  if (!RemoveEvidenceFile(orphan.directory + kPendingName, error)) {
    // The next import removes it.
    ReportEvidence("Could not clear the sentinel of orphan incident " + orphan.incident_id + ": " +
                   EvidenceErrorText(error));
  }
  return true;
}

}  // namespace

void AddKnownSession(KnownSessions& known, const std::string& session,
                     const std::string& incident_id) {
  std::string& greatest = known[session];
  greatest = std::max(greatest, incident_id);
}

bool moveIntoIncident(MoveContext& context, const std::string& source,
                      const std::string& target_name) {
  if (!migrateEvidenceFile(source)) {
    context.unmoved = true;
    context.errors.emplace_back("privacy migration failed; payload withheld");
    return false;
  }
  const auto moved =
      os().files->Rename(EvidencePath(source), EvidencePath(context.incident_dir + target_name));
  if (!moved) {
    context.unmoved = true;
    AddPrinted(context, "rename " + FileName(source) + " -> " + target_name + ": " +
                            EvidenceErrorText(moved.error()));
  }
  return moved.ok();
}

bool archiveWithUniqueName(MoveContext& context, const std::string& source,
                           const std::string& target_name) {
  if (!EvidenceExists(context.incident_dir + target_name)) {
    return moveIntoIncident(context, source, target_name);
  }
  const std::string name = FragmentName(context.incident_dir, target_name);
  context.errors.push_back("archived " + target_name + " as " + name +
                           ": this incident already held a " + target_name +
                           " from an earlier import, so the fragment is NOT known to belong to "
                           "session " +
                           context.session_id);
  return moveIntoIncident(context, source, name);
}

bool archiveOrphanCrashOutput(const EvidenceState& state, MoveContext& context,
                              const std::string& session, const std::string& path) {
  const auto known = context.known_sessions->find(session);
  const bool existing = known != context.known_sessions->end();
  const std::string id = existing ? known->second : NewIncidentId(state.incidents_dir, session);
  const Orphan orphan{state,
                      session,
                      path,
                      context.import_trigger,
                      existing,
                      id,
                      IncidentDirectory(state.incidents_dir, id)};
  const std::string target = orphan.directory + FileName(path);
  if (!OpenIncident(orphan) || !MoveOrphan(orphan, target)) {
    return false;
  }
  const CrashOutputScan scan = scanCrashOutput(target, kCrashScanBytes, nullptr);
  const bool fatal = scan == CrashOutputScan::fatal;
  if (!ConcludeOrphan(orphan, OrphanManifestText(orphan, scan, fatal ? SizeOrZero(target) : 0))) {
    return false;
  }
  AddKnownSession(*context.known_sessions, session, id);
  ReportEvidence("Archived orphan crash output of session " + session + " as incident " + id +
                 " (fatal=" + (fatal ? "yes" : "no") + ")");
  return true;
}

EvidenceFound archiveEvidence(const EvidenceState& state, MoveContext& context,
                              const std::vector<std::string>& flat_crash_outputs) {
  if (EvidenceExists(state.session_log_path)) {
    static_cast<void>(
        archiveWithUniqueName(context, state.session_log_path, kArchivedSessionLogName));
  }
  if (EvidenceExists(state.last_crash_path)) {
    static_cast<void>(
        archiveWithUniqueName(context, state.last_crash_path, kArchivedLastCrashName));
  }
  ArchiveOwnAndOrphaned(state, context, flat_crash_outputs);

  EvidenceFound found;
  // Fragments with a name of their own aren't counted.
  found.session_log_bytes = SizeOrZero(context.incident_dir + kArchivedSessionLogName) +
                            SizeOrZero(context.incident_dir + kArchivedLastCrashName);
  CountCrashOutputs(context, MigrateArchived(context), found);
  return found;
}

bool isAttributed(const std::string& crash_output_session, const std::string& incident_session,
                  std::size_t crash_output_count) {
  return crash_output_session == incident_session ||
         (incident_session == kUnknownSession && crash_output_count == 1);
}

}  // namespace korvane
