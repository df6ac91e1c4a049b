#include "diagnostics_evidence/incident_listing.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_moves.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_archive.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/privacy_migration.h"
#include "diagnostics_evidence/redaction.h"
#include "diagnostics_evidence/session_log.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

// Old files are cleaned before any of them is shown.
bool MigrateIncident(const EvidenceState& state, const std::string& id) {
  const FolderFiles files = ListFolderFiles(IncidentFolder(state, id));
  bool clean = files.listing_error.empty() && files.entry_error.empty();
  for (const std::string& name : files.names) {
    clean = migrateEvidenceFile(IncidentFile(state, id, name)) && clean;
  }
  return clean;
}

// "pending" stands there for certain. A question that fails counts as no.
bool IsPending(const EvidenceState& state, const std::string& id) {
  const auto kind = os().files->Inspect(EvidencePath(IncidentFile(state, id, kPendingName)));
  return kind && kind.value() != platform::EntryKind::kAbsent;
}

std::int64_t NumberIn(std::string_view manifest, std::string_view key) {
  return jsonIntField(manifest, key).value_or(0);
}

IncidentRow RowFromManifest(const std::string& id, std::string_view manifest) {
  IncidentRow row;
  row.id = id;
  row.reason = jsonStringField(manifest, "reason");
  if (row.reason.empty()) {
    row.reason = "unexplained";
  }
  row.session_id = jsonStringField(manifest, "session_id");
  row.build_id = jsonStringField(manifest, "build_id");
  row.started_at_utc = jsonStringField(manifest, "app_started_at_utc");
  row.ended_at_utc = jsonStringField(manifest, "app_ended_at_utc");
  row.imported_at_utc = jsonStringField(manifest, "imported_at_utc");
  row.marker_state = jsonStringField(manifest, "marker_state");
  row.shutdown_intent = jsonStringField(manifest, "intent");
  row.process_exit_reason = jsonStringField(manifest, "process_exit_reason");
  row.process_exit_state = jsonStringField(manifest, "process_exit_state");
  row.import_state = "complete";
  row.crash_output_scan = "none";
  row.reimport_count = jsonIntField(manifest, "reimport_count").value_or(0);
  row.shutdown_later_intent = jsonStringField(manifest, "later_intent");
  row.shutdown_state = jsonStringField(manifest, "state");
  row.close_code = jsonIntField(manifest, "close_code");
  row.close_error = redactDiagnosticText(jsonStringField(manifest, "close_error"));
  row.crash_output_bytes = NumberIn(manifest, "crash_output_bytes");
  row.session_log_bytes = NumberIn(manifest, "session_log_bytes");
  return row;
}

void ReadAcknowledgement(const EvidenceState& state, IncidentRow& row) {
  std::string sentinel;
  if (!readBounded(IncidentFile(state, row.id, kAcknowledgedName), kSentinelMaxBytes, sentinel) ||
      sentinel.empty()) {
    return;
  }
  const std::int32_t seen = jsonIntField(sentinel, "reimport_count").value_or(0);
  row.acknowledged = seen == row.reimport_count;
  if (!row.acknowledged) {
    row.import_errors.push_back("acknowledgement was for import generation " +
                                std::to_string(seen) + "; this incident is now generation " +
                                std::to_string(row.reimport_count));
  }
}

// The word on the row depends on the order of the files: after a fatal one no other is read.
void ReadCrashOutputs(const EvidenceState& state, const std::vector<std::string>& names,
                      IncidentRow& row) {
  for (const std::string& name : names) {
    const std::string session = crashOutputSession(name);
    if (!isAttributed(session, row.session_id, names.size())) {
      row.import_errors.push_back("crash-output of session " + session +
                                  " present but not attributed to this incident");
      continue;
    }
    std::string body;
    const auto scan = scanCrashOutput(IncidentFile(state, row.id, name), kCrashScanBytes, &body);
    if (scan == CrashOutputScan::read_failed) {
      row.crash_output_scan = "read_failed";
    } else if (scan == CrashOutputScan::fatal) {
      row.crash_output_scan = "fatal";
      row.has_crash_output = true;
      row.crash_output_excerpt = EnsureUtf8(redactDiagnosticText(body));
      return;
    } else {
      row.crash_output_scan = "header_only";
    }
  }
}

// Sizes and crash output. False when the folder could not be read through.
bool ReadFiles(const EvidenceState& state, IncidentRow& row) {
  const FolderFiles files = ListFolderFiles(IncidentFolder(state, row.id));
  std::vector<std::string> crash_outputs;
  for (const std::string& name : files.names) {
    const auto size = os().files->SizeOf(EvidencePath(IncidentFile(state, row.id, name)));
    row.total_bytes += size ? static_cast<std::int64_t>(size.value()) : 0;
    if (isCrashOutputName(name)) {
      crash_outputs.push_back(name);
    }
  }
  ReadCrashOutputs(state, crash_outputs, row);
  std::string note;
  if (!files.listing_error.empty()) {
    note = "file scan of this incident failed: " + files.listing_error;
  } else if (!files.entry_error.empty()) {
    note = "an entry in this incident could not be classified (transient stat error)";
  } else {
    return true;
  }
  ReportEvidence(note + " (" + row.id + ")");
  row.import_errors.push_back(std::move(note));
  return false;
}

// The row of one incident, or nothing when it is held back.
std::optional<IncidentRow> ListIncident(const EvidenceState& state, const std::string& id,
                                        std::string& failure) {
  const auto withhold = [&](const char* why) {
    ReportEvidence("Withholding incident " + id + ": " + why);
    return std::nullopt;
  };
  if (!MigrateIncident(state, id)) {
    failure = "privacy migration failed; evidence withheld";
    ReportEvidence("Privacy migration failed; incident withheld");
    return std::nullopt;
  }
  if (IsPending(state, id)) {
    return withhold("its import has not finished");
  }
  std::string manifest;
  if (!readBounded(IncidentFile(state, id, kManifestName), kManifestMaxBytes, manifest)) {
    return withhold("no manifest yet");
  }
  IncidentRow row = RowFromManifest(id, manifest);
  ReadAcknowledgement(state, row);
  const bool scanned = ReadFiles(state, row);
  for (std::string& error : ReadImportErrors(manifest)) {
    row.import_errors.push_back(std::move(error));
  }
  if (row.crash_output_scan == "read_failed") {
    return withhold("a crash-output file is present but unreadable");
  }
  if (!scanned) {
    return withhold("its file scan did not complete");
  }
  return row;
}

bool Refuse(const std::string& id, const std::string& why) {
  ReportEvidence("Refusing to acknowledge incident " + id + ": " + why);
  return false;
}

// An id becomes a path, and none may lead out of the archive.
bool IsMalformedId(const std::string& id) {
  return id.empty() || id == "." || id.find_first_of("\\/:") != std::string::npos ||
         id.find("..") != std::string::npos;
}

bool CrashOutputsAreReadable(const EvidenceState& state, const std::string& id) {
  const FolderFiles files = ListFolderFiles(IncidentFolder(state, id));
  if (!files.entry_error.empty()) {
    return Refuse(id, "an entry could not be classified (" + files.entry_error + ")");
  }
  for (const std::string& name : files.names) {
    if (isCrashOutputName(name) && scanCrashOutput(IncidentFile(state, id, name), kCrashScanBytes,
                                                   nullptr) == CrashOutputScan::read_failed) {
      return Refuse(id, "a crash-output file is present but unreadable");
    }
  }
  if (!files.listing_error.empty()) {
    return Refuse(id, "its directory could not be enumerated (" + files.listing_error + ")");
  }
  return true;
}

}  // namespace

std::vector<IncidentRow> ListIncidentRows(const EvidenceState& state, std::string& failure) {
  std::vector<IncidentRow> rows;
  failure.clear();
  if (!state.diagnostics_enabled) {
    return rows;
  }
  std::vector<std::string> ids;
  std::string error;
  const bool listed = ListIncidents(state, ids, error);
  for (const std::string& id : ids) {
    if (auto row = ListIncident(state, id, failure)) {
      rows.push_back(std::move(*row));
    }
  }
  if (!listed) {
    ReportEvidence("Failed to list incidents: " + error);
    failure = "incidents directory could not be enumerated: " + error;
  }
  std::ranges::sort(rows, std::ranges::greater(), &IncidentRow::id);
  return rows;
}

bool AcknowledgeIncident(const EvidenceState& state, const std::string& id,
                         std::int32_t reimport_count) {
  if (!state.diagnostics_enabled) {
    return false;
  }
  if (IsMalformedId(id)) {
    ReportEvidence("Rejecting malformed incident id");
    return false;
  }
  const auto kind = os().files->Inspect(EvidencePath(IncidentFolder(state, id)));
  if (!kind || kind.value() != platform::EntryKind::kDirectory) {
    ReportEvidence("Cannot acknowledge unknown incident " + id);
    return false;
  }
  if (IsPending(state, id)) {
    return Refuse(id, "its import has not finished");
  }
  // An incident without a readable manifest counts as of generation 0.
  std::string manifest;
  readBounded(IncidentFile(state, id, kManifestName), kManifestMaxBytes, manifest);
  const std::int32_t current = jsonIntField(manifest, "reimport_count").value_or(0);
  if (current != reimport_count) {
    return Refuse(id, "caller saw import generation " + std::to_string(reimport_count) +
                          ", the archive is now at " + std::to_string(current));
  }
  return CrashOutputsAreReadable(state, id) &&
         writeFileDurable(IncidentFile(state, id, kAcknowledgedName),
                          writeAcknowledgedSentinel(UtcNow(), reimport_count));
}

}  // namespace korvane
