// session_markers.h: three small files that tell the next start how the last engine session ended.
//
//   libbox_session_active   there while a session runs; left behind by a process that died, and
//   that
//                           silence is the evidence
//   libbox_clean_shutdown   the engine closed normally
//   libbox_failed_start     the session never came up
//   os_shutdown_marker      decimal Unix milliseconds: the system was going down
//
// A marker is one JSON object without a line feed, written durably but not by a commit: a torn one
// is dealt with by the import. The order of a session: active marker; on failure the failed-start
// marker, on a confirmed close the clean one; then the active one is removed. A crash in between
// leaves two, of which the import knows the stronger. Callers hold the evidence mutex, but for the
// marker of the system's shutdown, which takes no lock and ignores the preference: it must be quick
// and holds no session data.
#pragma once

#include <string>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

// Imports what the previous session left, gives this one its id, and writes its active marker. The
// marker is deferred once when the import failed, so that the old ones still describe the session
// that they belong to; from the second failure in a row on it is written all the same.
void BeginSession(EvidenceState& state);

// Writes the clean marker, unless the record says that this session's close failed; in both cases
// the active marker goes.
void MarkCleanShutdown(EvidenceState& state);

void MarkFailedStart(EvidenceState& state);

void WriteOsShutdownMarker(const EvidenceState& state);
void ClearOsShutdownMarker(const EvidenceState& state);

// A new id: process id, performance counter and a process-wide count, in lower-case hexadecimal. It
// holds no wall-clock time.
std::string NewSessionId();

}  // namespace korvane
