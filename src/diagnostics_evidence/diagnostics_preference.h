// diagnostics_preference.h: whether anything is captured at all, and the deletion of what was kept.
//
//   registry, current user, Software\Korvane, WindowsDiagnosticsEnabled (32 bits)   1 is on
//   windows_diagnostics_revoked in the evidence root, eight bytes                    overrules a 1
//
// A change stages the revocation first, in both directions, then writes the registry; enabling
// removes the revocation last. So a crash in the middle of either leaves capture off, and the file
// stands for as long as the preference is off. A sibling ".tmp" left by a crash counts as a
// revocation too. Callers hold the evidence mutex.
#pragma once

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

// At construction: decides whether capture is on for this process. With capture off, what was kept
// is cleared; a failure is told in diagnostics_failure.
void LoadDiagnosticsPreference(EvidenceState& state);

// Changes the preference. On false diagnostics_failure says why, and capture is off.
bool StoreDiagnosticsPreference(EvidenceState& state, bool enabled);

// Deletes all retained evidence and forgets the session. Links are left alone and count as
// failures, as does anything that can't be removed; the walk goes on in any case. The marker of the
// system's shutdown and the revocation stay.
bool clearRetainedEvidence(EvidenceState& state);

}  // namespace korvane
