// incident_archive.h: where incidents lie.
//
// The archive is a folder of folders, one per incident; an incident's id is its folder's name.
// Callers hold the evidence mutex.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

// How much of a crash output is looked at.
inline constexpr std::size_t kCrashScanBytes = 4096;

// Path of an incident's folder, without a separator behind it, and of a file in it.
std::string IncidentFolder(const EvidenceState& state, const std::string& id);
std::string IncidentFile(const EvidenceState& state, const std::string& id, std::string_view name);

// The ids of all incidents in ascending order. On false, `error` is the system's message.
bool ListIncidents(const EvidenceState& state, std::vector<std::string>& ids, std::string& error);

}  // namespace korvane
