// incident_listing.h: the archive as the interface sees it, and what the user has seen of it.
//
//   incidents/ID/acknowledged   {"acknowledged_at_utc":"...","reimport_count":N}, written durably
//
// An acknowledgement counts for the import generation N alone, so that evidence which comes later
// makes the incident unread again.
//
// An incident is held back rather than shown incomplete: while its import hasn't finished, while
// its text can't be cleaned, and while a crash output in it can't be read. One whose import hasn't
// finished can't be acknowledged either. Callers hold the evidence mutex.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_state.h"
#include "diagnostics_evidence/libbox_log_buffer.h"

namespace korvane {

// The complete incidents, newest first; none while capture is off. A failure to clean an incident
// or to list the archive is told in `failure`, empty otherwise; the other rows are there all the
// same.
std::vector<IncidentRow> ListIncidentRows(const EvidenceState& state, std::string& failure);

// False when the incident isn't there, isn't finished, or is no longer at this generation. An id
// can't lead out of the archive.
bool AcknowledgeIncident(const EvidenceState& state, const std::string& id,
                         std::int32_t reimport_count);

}  // namespace korvane
