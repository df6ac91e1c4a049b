#include "diagnostics_evidence/incident_archive.h"

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "platform/os.h"

namespace korvane {

using platform::os;

std::string IncidentFolder(const EvidenceState& state, const std::string& id) {
  return state.incidents_dir + id;
}

std::string IncidentFile(const EvidenceState& state, const std::string& id, std::string_view name) {
  return IncidentDirectory(state.incidents_dir, id).append(name);
}

bool ListIncidents(const EvidenceState& state, std::vector<std::string>& ids, std::string& error) {
  const auto entries = os().files->List(EvidencePath(state.incidents_dir));
  if (!entries) {
    error = EvidenceErrorText(entries.error());
    return false;
  }
  for (const platform::DirectoryEntry& entry : entries.value()) {
    if (entry.kind == platform::EntryKind::kDirectory) {
      ids.push_back(os().text->NarrowFromPath(entry.name));
    }
  }
  return true;
}

}  // namespace korvane
