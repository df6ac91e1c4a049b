// incident_import.h: turns what the previous session left flat into one incident.
//
// Nothing is removed until what replaces it has been read back. The disk goes through these states,
// and a crash between any two leaves what the next import finishes:
//
//   step               on disk behind it                  the next import
//   new folder         an empty folder                    writes a placeholder there, archives the
//                                                         flat evidence in a second folder
//   pending            the sentinel names the session     resumes there, replaces the placeholder
//   evidence moved     files in the incident, markers     resumes; a moved file stays where it is
//                      flat
//   manifest           manifest and pending               resumes; reimport_count rises, the first
//                                                         reason stands
//   markers removed    manifest and pending, nothing      removes pending
//                      flat
//   pending removed    the incident is finished           nothing to do
//
// Every abort leaves the markers where they are and says why in last_import_error. Callers hold the
// evidence mutex, and nobody else writes what is read here but the engine its crash output.
#pragma once

#include <string>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

// True when nothing is left flat that should have been archived. The trigger is "boot" or
// "session_start".
bool importPreviousSession(EvidenceState& state, const std::string& trigger);

// The boot import: once in a process, and only before its first session, whose own markers lie flat
// from then on. On false, `failure` tells why; it is empty when the import was not run.
bool ImportAtBoot(EvidenceState& state, std::string& failure);

}  // namespace korvane
