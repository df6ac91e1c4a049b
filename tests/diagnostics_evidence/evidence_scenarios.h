// evidence_scenarios.h: what the loops over the evidence run, and the one check behind each run.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {

struct EvidenceScenario {
  const char* name;
  void (*leave)(EvidenceWorld& world);  // what lies there before
  void (*act)(LibboxLogBuffer& evidence);
  // Words that stand each in one file before, and must stand in one file for good.
  std::vector<std::string> payloads;
  // Sessions that must stay named by a marker, a record or a manifest, and how each ended.
  std::map<std::string, std::string> sessions;
  // An import that fails at the act's session's start defers that session's marker, and its end
  // then removes the former's: behind a fault the sessions can't be told apart.
  bool faults_confuse = false;
};

const std::vector<EvidenceScenario>& EvidenceScenarios();
inline void PrintTo(const EvidenceScenario& scenario, std::ostream* out) { *out << scenario.name; }

void BootImport(LibboxLogBuffer& evidence);
// A session "s1" that crashed.
void LeaveCrash(EvidenceWorld& world);
// A finished incident that is old news to the import; its id is a time, a hyphen and the session.
void LeaveIncident(EvidenceWorld& world, const std::string& id, const std::string& reason);

// The secret in what is left.
inline constexpr char kSecret[] = "10.11.12.13";

// Whether all that was left is there, once, and its sessions named; at any moment. `faulty` says
// whether an operation had failed.
void CheckEvidence(EvidenceWorld& world, const EvidenceScenario& scenario, bool faulty);

// What a process that starts on this finds and makes of it: nothing unfinished is listed, the
// import tells the truth and leaves nothing flat and nothing raw, and what was concluded stays;
// behind the next import there is nothing left to do. `plan` is that of the first import.
void CheckRecovery(EvidenceWorld& world, const EvidenceScenario& scenario, bool faulty,
                   CountingPlan plan = {});

}  // namespace korvane::test
