#include "diagnostics_evidence/incident_manifest.h"

#include <algorithm>
#include <limits>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/redaction.h"
#include "platform/os.h"

namespace korvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr char kPlaceholderSource[] = "recovered_placeholder";

// One object, key behind key.
class ObjectText {
 public:
  ObjectText& Text(const char* key, const std::string& value) {
    return Raw(key, '"' + jsonEscape(value) + '"');
  }
  ObjectText& Number(const char* key, std::int64_t value) {
    return Raw(key, std::to_string(value));
  }
  ObjectText& Flag(const char* key, bool value) { return Raw(key, value ? "true" : "false"); }
  ObjectText& Raw(const char* key, const std::string& value) {
    return Member(std::string("\"") + key + "\":" + value);
  }
  ObjectText& Texts(const char* key, const std::vector<std::string>& values) {
    std::string list;
    for (const std::string& value : values) {
      list += (list.empty() ? "\"" : ",\"") + jsonEscape(value) + '"';
    }
    return Raw(key, '[' + list + ']');
  }
  ObjectText& Member(std::string_view member) {
    text_ += text_.empty() ? '{' : ',';
    text_ += member;
    return *this;
  }
  std::string Closed() const { return text_ + '}'; }

 private:
  std::string text_;
};

// A foreign record shows its times and its intent, but not what classified nothing here.
std::string ShutdownObject(const ShutdownRecord& record, const std::string& session_id) {
  const bool exit_counts =
      record.process_exit_session.empty() || record.process_exit_session == session_id;
  const bool vpn_counts = record.session_id.empty() || record.session_id == session_id;
  ObjectText object;
  object.Text("process_exit_reason", exit_counts ? record.process_exit_reason : "")
      .Text("process_exit_state", exit_counts ? record.process_exit_state : "")
      .Text("intent", record.reason)
      .Text("later_intent", record.later_intent)
      .Text("state", vpn_counts ? record.state : "")
      .Text("requested_at_utc", record.requested_at_utc)
      .Text("result_at_utc", record.result_at_utc);
  if (record.close_code) {
    object.Number("close_code", *record.close_code);
  }
  return object.Text("close_error", redactDiagnosticText(record.close_error)).Closed();
}

ObjectText BeginObject(const std::string& incident_id, const std::string& session_id) {
  ObjectText object;
  object.Number("schema", 1).Text("incident_id", incident_id).Text("session_id", session_id);
  return object;
}

// The keys from marker_state on, which the two long templates share.
void AddObserved(ObjectText& object, const ManifestFields& fields) {
  object.Text("marker_state", fields.marker_state)
      .Text("app_started_at_utc", fields.app_started_at_utc)
      .Text("app_ended_at_utc", fields.app_ended_at_utc)
      .Text("imported_at_utc", fields.imported_at_utc)
      .Text("import_trigger", fields.import_trigger)
      .Number("session_log_bytes", fields.session_log_bytes)
      .Flag("has_crash_output", fields.has_crash_output)
      .Text("crash_output_scan", fields.crash_output_scan)
      .Number("crash_output_bytes", fields.crash_output_bytes);
}

// The session as a part of a file name that both systems take and that leads nowhere else.
std::string FileNameOf(const std::string& session_id) {
  constexpr std::string_view kForbidden = "<>:\"/\\|?*";
  if (session_id.find_first_not_of('.') == std::string::npos) {
    return "_";
  }
  std::string name = session_id;
  for (char& c : name) {
    if (static_cast<unsigned char>(c) < 32 || kForbidden.find(c) != kNone) {
      c = '_';
    }
  }
  return name;
}

std::size_t SkipSpace(std::string_view text, std::size_t at) {
  return std::min(text.find_first_not_of(" \t\n\v\f\r", at), text.size());
}

// The place behind the brace that closes the object that begins at `at`; npos when it is cut.
std::size_t EndOfObject(std::string_view text, std::size_t at) {
  std::size_t depth = 0;
  while (at < text.size()) {
    if (text[at] == '"') {
      at = FindClosingQuote(text, at + 1);
      if (at == kNone) {
        return kNone;
      }
    } else if (text[at] == '{') {
      ++depth;
    } else if (text[at] == '}' && --depth == 0) {
      return at + 1;
    }
    ++at;
  }
  return kNone;
}

}  // namespace

std::string writeIncidentManifest(const ManifestFields& fields) {
  ObjectText object = BeginObject(fields.incident_id, fields.session_id);
  object.Text("session_id_source", fields.session_id_source)
      .Text("build_id", fields.build_id)
      .Text("reason", fields.reason)
      .Text("reason_source", fields.reason_source)
      .Number("reimport_count", fields.reimport_count)
      .Text("reimport_observed_reason", fields.reimport_observed_reason)
      .Text("crash_output_ambiguous", fields.crash_output_ambiguous);
  AddObserved(object, fields);
  return object.Raw("shutdown", ShutdownObject(fields.shutdown, fields.session_id))
      .Texts("import_errors", fields.import_errors)
      .Closed();
}

std::string writePlaceholderManifest(const std::string& incident_id, const std::string& session_id,
                                     const std::string& build_id,
                                     const std::string& imported_at_utc,
                                     const std::string& import_trigger) {
  return BeginObject(incident_id, session_id)
      .Text("build_id", build_id)
      .Text("reason", "unexplained")
      .Text("reason_source", kPlaceholderSource)
      .Text("marker_state", "none")
      .Text("imported_at_utc", imported_at_utc)
      .Text("import_trigger", import_trigger)
      .Texts("import_errors", {"manifest recovered after an interrupted import"})
      .Closed();
}

std::string writeOrphanManifest(const ManifestFields& fields, std::string_view shutdown_member,
                                bool first_reason_kept) {
  ObjectText object = BeginObject(fields.incident_id, fields.session_id);
  object.Text("session_id_source", fields.session_id_source)
      .Text("build_id", fields.build_id)
      .Text("reason", fields.reason)
      .Text("reason_source", fields.reason_source)
      .Number("reimport_count", fields.reimport_count);
  AddObserved(object, fields);
  if (!shutdown_member.empty()) {
    object.Member(shutdown_member);
  }
  std::vector<std::string> notes = {
      "crash output of a session with no surviving marker; imported on its own so it is not "
      "attributed to another session"};
  if (first_reason_kept) {
    notes.push_back("re-imported: the first classification ('" + fields.reason +
                    "') is KEPT; this pass only added crash-output evidence");
  }
  return object.Texts("import_errors", notes).Closed();
}

std::string writePendingSentinel(const std::string& incident_id, const std::string& session_id,
                                 const std::string& created_at_utc,
                                 const std::string& import_trigger) {
  return BeginObject(incident_id, session_id)
      .Text("created_at_utc", created_at_utc)
      .Text("import_trigger", import_trigger)
      .Closed();
}

std::string writeAcknowledgedSentinel(const std::string& acknowledged_at_utc,
                                      std::int32_t reimport_count) {
  return ObjectText()
      .Text("acknowledged_at_utc", acknowledged_at_utc)
      .Number("reimport_count", reimport_count)
      .Closed();
}

const char* CrashOutputScanWord(CrashOutputScan scan) {
  switch (scan) {  // coverage: every result has its case
    case CrashOutputScan::fatal:
      return "fatal";
    case CrashOutputScan::read_failed:
      return "read_failed";
    case CrashOutputScan::header_only:
      break;
  }
  return "header_only";
}

std::string IncidentDirectory(const std::string& incidents_dir, const std::string& incident_id) {
  return incidents_dir + incident_id + platform::os().text->PathSeparator();
}

std::string NewIncidentId(const std::string& incidents_dir, const std::string& session_id) {
  constexpr int kLastSuffix = 99;
  const std::string first = CompactUtcNow() + "-" + FileNameOf(session_id);
  std::string id = first;
  for (int n = 2; n <= kLastSuffix && EvidenceExists(incidents_dir + id); ++n) {
    id = first + "-" + std::to_string(n);
  }
  return id;
}

bool EarlierManifest::KeepsReason() const {
  return !reason.empty() && reason_source != kPlaceholderSource;
}

std::int32_t EarlierManifest::NextReimportCount() const {
  // Only a damaged file holds the greatest number.
  return reimport_count == std::numeric_limits<std::int32_t>::max() ? reimport_count
                                                                    : reimport_count + 1;
}

std::optional<EarlierManifest> ReadManifest(const std::string& incident_dir) {
  EarlierManifest manifest;
  if (!readBounded(incident_dir + kManifestName, kManifestMaxBytes, manifest.text)) {
    return std::nullopt;
  }
  manifest.reason = jsonStringField(manifest.text, "reason");
  manifest.reason_source = jsonStringField(manifest.text, "reason_source");
  manifest.imported_at_utc = jsonStringField(manifest.text, "imported_at_utc");
  manifest.reimport_count = jsonIntField(manifest.text, "reimport_count").value_or(0);
  return manifest;
}

bool ManifestVerifies(const std::string& incident_dir, const std::string& incident_id) {
  std::string text;
  return readBounded(incident_dir + kManifestName, kManifestMaxBytes, text) &&
         jsonStringField(text, "incident_id") == incident_id;
}

std::string_view FindShutdownMember(std::string_view manifest) {
  constexpr std::string_view kKey = "\"shutdown\"";
  for (std::size_t key = manifest.find(kKey); key != kNone;
       key = manifest.find(kKey, key + kKey.size())) {
    // A value may read the same; the key has a colon and an object behind it.
    const std::size_t colon = SkipSpace(manifest, key + kKey.size());
    if (!manifest.substr(colon).starts_with(':')) {
      continue;
    }
    const std::size_t brace = SkipSpace(manifest, colon + 1);
    if (!manifest.substr(brace).starts_with('{')) {
      continue;
    }
    const std::size_t end = EndOfObject(manifest, brace);
    return end == kNone ? std::string_view() : manifest.substr(key, end - key);
  }
  return {};
}

std::vector<std::string> ReadImportErrors(std::string_view manifest) {
  constexpr std::string_view kKey = "\"import_errors\"";
  constexpr std::string_view kBetween = ", \t\n\v\f\r";
  std::vector<std::string> errors;
  const std::size_t key = manifest.find(kKey);
  const std::size_t list = key == kNone ? kNone : manifest.find('[', key + kKey.size());
  std::size_t at = list == kNone ? kNone : manifest.find_first_not_of(kBetween, list + 1);
  while (at != kNone && manifest[at] == '"') {
    const std::size_t end = FindClosingQuote(manifest, at + 1);
    if (end == kNone) {
      break;
    }
    errors.push_back(JsonUnescape(manifest.substr(at + 1, end - at - 1)));
    at = manifest.find_first_not_of(kBetween, end + 1);
  }
  return errors;
}

}  // namespace korvane
