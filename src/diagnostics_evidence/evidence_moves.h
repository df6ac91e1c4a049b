// evidence_moves.h: how flat evidence reaches its incident, and crash output one of its own.
//
// A move is the migration of the flat file in place, then one rename, so a file is flat or in one
// incident at any time and never raw in the archive. The states in which a crash may leave it:
//
//   flat file   in the incident   after                         the next import
//   raw         -                 nothing, or a failed          migrates and moves it
//                                 migration
//   redacted    -                 the migration's commit        moves it
//   -           redacted          the rename                    finds it there; a newer log of the
//                                                               session gets a name of its own
//
// Crash output that names another session, in this order:
//
//   new folder  >  pending  >  file migrated  >  file moved  >  manifest  >  pending removed
//
//   after a crash behind      the next import
//   new folder                writes a placeholder of an unknown session; the file is flat still,
//                             and gets a second folder
//   pending                   writes a placeholder of its session, joins the file to that incident
//   file moved                writes a placeholder there; the file stays where it is
//   manifest                  clears pending when nothing flat names the session
//
// Any failed move sets `unmoved`, and the import then keeps pending and all markers for a retry.
// Errors hold file names and the system's words, never whole paths. Callers hold the evidence
// mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_state.h"

namespace korvane {

// The incident of each session that the archive knows, by session.
using KnownSessions = std::map<std::string, std::string>;

// Of several incidents of one session the greatest id counts.
void AddKnownSession(KnownSessions& known, const std::string& session,
                     const std::string& incident_id);

// What the moves of one import share. The first four are the import's; the rest is what was found.
struct MoveContext {
  std::string incident_dir;  // with a trailing separator
  std::string session_id;    // or "unknown"
  std::string import_trigger;
  KnownSessions* known_sessions = nullptr;  // not null, not owned

  bool unmoved = false;
  std::vector<std::string> errors;
};

// What the incident then holds, as its manifest says it.
struct EvidenceFound {
  std::int64_t session_log_bytes = 0;
  bool has_crash_output = false;
  std::string crash_output_scan = "header_only";
  std::int64_t crash_output_bytes = 0;
  std::string crash_output_ambiguous;
};

// Migrates the source and renames it into the incident, over any file of that name. On false the
// source is flat still, and `unmoved` and the errors say so.
bool moveIntoIncident(MoveContext& context, const std::string& source,
                      const std::string& target_name);

// The same for a name that may be taken: the file then gets the first free of "name.2.ext" to
// "name.99.ext", and a note that it isn't known to belong to the session.
bool archiveWithUniqueName(MoveContext& context, const std::string& source,
                           const std::string& target_name);

// Archives crash output of a session that has no markers in that session's own incident, new or
// known. On false the file is flat still, or its incident is unfinished.
bool archiveOrphanCrashOutput(const EvidenceState& state, MoveContext& context,
                              const std::string& session, const std::string& path);

// Moves all flat evidence where it belongs, migrates what the incident held already, and counts.
// `flat_crash_outputs` are names in the evidence root.
EvidenceFound archiveEvidence(const EvidenceState& state, MoveContext& context,
                              const std::vector<std::string>& flat_crash_outputs);

// Whether crash output of one session speaks for an incident that holds `crash_output_count` such
// files.
bool isAttributed(const std::string& crash_output_session, const std::string& incident_session,
                  std::size_t crash_output_count);

}  // namespace korvane
