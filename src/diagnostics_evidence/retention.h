// retention.h: keeps the archive small, and the evidence of a problem longest.
//
// Runs behind each finished import. The newest incident and unfinished ones stay whatever the
// budgets say. Eviction isn't atomic: a crash in its middle leaves an incident with fewer files,
// which the next import or the next pass deals with. Callers hold the evidence mutex.
#pragma once

#include <cstdint>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

inline constexpr std::int64_t kIncidentMaxAgeSeconds = 604'800;
inline constexpr std::int64_t kMaxIncidents = 3;
inline constexpr std::int64_t kMaxArchiveBytes = 10'485'760;

// Evicts by age, then by count and size: incidents that ended cleanly first, each kind oldest
// first.
void applyRetention(const EvidenceState& state);

}  // namespace korvane
