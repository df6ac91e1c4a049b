#include "diagnostics_evidence/diagnostics_preference.h"

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/session_log.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr wchar_t kKey[] = L"Software\\Korvane";
constexpr wchar_t kValue[] = L"WindowsDiagnosticsEnabled";
constexpr char kRevoked[] = "revoked\n";

constexpr char kCantInspect[] = "Cannot inspect diagnostics revocation; capture remains off";
constexpr char kCantRead[] = "Cannot read Windows diagnostics preference; capture remains off";
constexpr char kCantMakeFolder[] =
    "Cannot create Windows diagnostics directory; capture remains off";
constexpr char kCantStage[] = "Cannot stage Windows diagnostics preference; capture remains off";
constexpr char kCantSave[] = "Cannot save Windows diagnostics preference; capture remains off";
constexpr char kCantUnrevoke[] = "Cannot clear Windows diagnostics revocation; capture remains off";
constexpr char kCantPersist[] =
    "Cannot persist diagnostics revocation: capture is off only for this process; retry before "
    "restarting";
constexpr char kCantClear[] = "Diagnostics are off, but retained evidence could not be cleared";

std::string RevocationPath(const EvidenceState& state) {
  return state.base_dir + "windows_diagnostics_revoked";
}

// Whether a revocation stands; a question that fails counts as one.
bool Revoked(EvidenceState& state, const std::string& path) {
  const auto kind = os().files->Inspect(EvidencePath(path));
  if (!kind) {
    state.diagnostics_failure = kCantInspect;
    return true;
  }
  return kind.value() != platform::EntryKind::kAbsent;
}

bool ReadSwitch(EvidenceState& state) {
  const auto value = os().registry->ReadDword(platform::RegistryHive::kCurrentUser, kKey, kValue);
  if (!value && value.error() != platform::kRegistryNotFound) {
    state.diagnostics_failure = kCantRead;
  }
  return value && value.value() == 1;
}

bool MakeIncidentsFolder(EvidenceState& state) {
  if (os().files->CreateDirectories(EvidencePath(state.incidents_dir))) {
    return true;
  }
  state.diagnostics_failure = kCantMakeFolder;
  return false;
}

bool RemoveRevocation(const EvidenceState& state) {
  platform::ErrorCode error = 0;
  const bool sibling_gone = RemoveEvidenceFile(RevocationPath(state) + ".tmp", error);
  return RemoveEvidenceFile(RevocationPath(state), error) && sibling_gone;
}

bool ClearCrashOutputs(const EvidenceState& state) {
  const auto entries = os().files->List(EvidencePath(state.base_dir));
  if (!entries) {
    return os().files->IsNotFound(entries.error());
  }
  bool cleared = true;
  for (const platform::DirectoryEntry& entry : entries.value()) {
    if (isCrashOutputName(os().text->NarrowFromPath(entry.name)) &&
        !RemoveEvidenceTree(EvidencePath(state.base_dir) / entry.name)) {
      cleared = false;
    }
  }
  return cleared;
}

bool TurnOn(EvidenceState& state) {
  if (!MakeIncidentsFolder(state)) {
    return false;
  }
  if (!RemoveRevocation(state)) {
    state.diagnostics_failure = kCantUnrevoke;
    return false;
  }
  state.diagnostics_enabled = true;
  // So that a later boot import may run.
  state.boot_import_done = false;
  return true;
}

}  // namespace

void LoadDiagnosticsPreference(EvidenceState& state) {
  const bool revoked = Revoked(state, RevocationPath(state));
  const bool half_revoked = Revoked(state, RevocationPath(state) + ".tmp");
  const bool switched_on = ReadSwitch(state);
  state.diagnostics_enabled =
      !revoked && !half_revoked && switched_on && MakeIncidentsFolder(state);
  if (!state.diagnostics_enabled) {
    clearRetainedEvidence(state);
  }
}

bool StoreDiagnosticsPreference(EvidenceState& state, bool enabled) {
  // Off until the change has fully succeeded.
  state.diagnostics_failure.clear();
  state.diagnostics_enabled = false;
  const bool staged = commitFile(RevocationPath(state), kRevoked);
  if (enabled && !staged) {
    state.diagnostics_failure = kCantStage;
    return false;
  }
  const bool saved =
      os().registry->WriteDword(platform::RegistryHive::kCurrentUser, kKey, kValue, enabled ? 1 : 0)
          .ok();
  if (!saved || !staged) {
    state.diagnostics_failure = kCantSave;
  }
  if (enabled) {
    return saved && TurnOn(state);
  }
  const bool cleared = clearRetainedEvidence(state);
  if (!saved && !staged) {
    state.diagnostics_failure = kCantPersist;
  }
  return saved && staged && cleared;
}

bool clearRetainedEvidence(EvidenceState& state) {
  bool cleared = RemoveEvidenceTree(EvidencePath(state.incidents_dir));
  for (const std::string* path : state.FlatPaths()) {
    cleared = RemoveEvidenceTree(EvidencePath(*path)) && cleared;
    cleared = RemoveEvidenceTree(EvidencePath(*path + ".tmp")) && cleared;
  }
  cleared = ClearCrashOutputs(state) && cleared;
  state.session_id.clear();
  state.last_throttled_breadcrumb_ms = 0;
  state.boot_import_done = false;
  state.consecutive_import_failures = 0;
  if (!cleared) {
    state.diagnostics_failure = kCantClear;
    ReportEvidence(kCantClear);
  }
  return cleared;
}

}  // namespace korvane
