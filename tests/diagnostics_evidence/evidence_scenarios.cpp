#include "diagnostics_evidence/evidence_scenarios.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "diagnostics_evidence/json_text.h"

namespace korvane::test {

namespace {

using Process = LibboxLogBuffer;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kLog[] = "libbox_session.log";

}  // namespace

void BootImport(Process& evidence) { evidence.importPendingIncidents(nullptr); }

void LeaveCrash(EvidenceWorld& world) {
  world.Put(kActive, MarkerText("s1"));
  world.Put(kLog, std::string("log-of-s1\ndial ") + kSecret + ":443 refused\n");
}

// A finished incident that is old news to the import.
void LeaveIncident(EvidenceWorld& world, const std::string& id, const std::string& reason) {
  const std::string session = id.substr(id.find('-') + 1);
  world.Put("incidents/" + id + "/manifest.json",
            R"({"schema":1,"incident_id":")" + id + R"(","session_id":")" + session +
                R"(","reason":")" + reason +
                R"(","reason_source":"import","reimport_count":0,"import_errors":[]})");
  world.Put("incidents/" + id + "/session.log", "log-of-" + session + "\n");
}

const std::vector<EvidenceScenario>& EvidenceScenarios() {
  static const std::vector<EvidenceScenario> scenarios = {
      {"nothing to import", [](EvidenceWorld&) {}, BootImport, {}, {}},
      {"a crash", LeaveCrash, BootImport, {"log-of-s1"}, {{"s1", "unexplained"}}},
      {"a clean end",
       [](EvidenceWorld& world) {
         world.Put(kClean, MarkerText("s1"));
         world.Put(kRecord, RecordText({{"session_id", "s1"}, {"state", "completed"}}));
         world.Put(kLog, "log-of-s1\n");
       },
       BootImport,
       {"log-of-s1"},
       {{"s1", "clean"}}},
      {"a failed start",
       [](EvidenceWorld& world) {
         world.Put(kFailedStart, MarkerText("s1"));
         world.Put(kRecord, RecordText({{"session_id", "s1"}, {"reason", "failed_start"}}));
       },
       BootImport,
       {},
       {{"s1", "failed_start"}}},
      {"a failed close on tray quit",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         world.Put(kRecord, RecordText({{"session_id", "s1"},
                                        {"state", "failed"},
                                        {"process_exit_reason", "tray_quit"},
                                        {"process_exit_state", "requested"},
                                        {"close_error", std::string("at ") + kSecret}}));
       },
       BootImport,
       {"log-of-s1"},
       {{"s1", "intentional_exit"}}},
      {"a resumed import",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         LeaveIncident(world, "20240101T000000Z-s1", "clean");
         world.Put("incidents/20240101T000000Z-s1/session.log", "earlier-log-of-s1\n");
         world.Put("incidents/20240101T000000Z-s1/pending", R"({"session_id":"s1"})");
       },
       BootImport,
       {"\nearlier-log-of-s1", "\nlog-of-s1"},
       {{"s1", "clean"}}},
      {"crash output of its own and of another session",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         world.Put("crash-output.s1.log", "crash-output armed x\npanic-of-s1\n");
         world.Put("crash-output.s0.log", std::string("panic-of-s0 at ") + kSecret + "\n");
         world.Put("libbox_last_crash.log", "older-crash\n");
       },
       BootImport,
       {"log-of-s1", "panic-of-s1", "panic-of-s0", "older-crash"},
       {{"s1", "unexplained"}, {"s0", "unexplained"}}},
      {"two crash outputs and no marker",
       [](EvidenceWorld& world) {
         world.Put("crash-output.s1.log", "panic-of-s1\n");
         world.Put("crash-output.s0.log", "panic-of-s0\n");
       },
       BootImport,
       {"panic-of-s1", "panic-of-s0"},
       {{"s1", "unexplained"}, {"s0", "unexplained"}}},
      {"the next session begins",
       LeaveCrash,
       [](Process& evidence) {
         evidence.beginSession();
         evidence.recordBreadcrumb("up", false);
       },
       {"log-of-s1"},
       {{"s1", "unexplained"}}},
      {"a session runs and ends behind a crash",
       LeaveCrash,
       [](Process& evidence) {
         evidence.beginSession();
         evidence.recordShutdownIntent("user_disconnect");
         evidence.recordCloseResult(evidence.currentSessionId(), true, 0, "");
         evidence.markCleanShutdown();
       },
       {"log-of-s1"},
       {{"s1", "unexplained"}},
       /*faults_confuse=*/true},
      {"too many incidents",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         LeaveIncident(world, "20230101T000000Z-old", "unexplained");
         LeaveIncident(world, "20240101T000000Z-a", "unexplained");
         LeaveIncident(world, "20240101T000001Z-b", "clean");
         LeaveIncident(world, "20240101T000002Z-c", "unexplained");
       },
       BootImport,
       {"\nlog-of-s1"},
       {{"s1", "unexplained"}}},
      {"an acknowledgement and a summary",
       [](EvidenceWorld& world) { LeaveIncident(world, "20240101T000000Z-a", "unexplained"); },
       [](Process& evidence) {
         evidence.acknowledgeIncident("20240101T000000Z-a", 0);
         evidence.checkForCrashLogs();
         evidence.getPendingIncidents(nullptr);
       },
       {"log-of-a"},
       {{"a", "unexplained"}}},
  };
  return scenarios;
}

namespace {

using Files = std::map<std::string, std::string>;

bool IsSibling(const std::string& name) { return name.ends_with(".tmp"); }

// Whether something of an incident may be gone: one that was too many, so that the others are as
// many as are kept. The journal need not say so: an end may come before its line.
bool MayBeEvicted(EvidenceWorld& world) {
  constexpr std::size_t kKeptIncidents = 3;
  return world.Incidents().size() >= kKeptIncidents;
}

// Whether an incident lost its session: its sentinel could not be read when its manifest was made.
bool HasNameless(const Files& files) {
  return std::ranges::any_of(files, [](const auto& file) {
    return file.first.ends_with("/manifest.json") &&
           jsonStringField(file.second, "session_id") == "unknown" &&
           jsonStringField(file.second, "reason_source") == "recovered_placeholder";
  });
}

// The archive's conclusions: session and reason, by the manifest's name.
std::map<std::string, std::pair<std::string, std::string>> Conclusions(const Files& files) {
  std::map<std::string, std::pair<std::string, std::string>> found;
  for (const auto& [name, bytes] : files) {
    if (name.ends_with("/manifest.json") && jsonStringField(bytes, "reason_source") == "import") {
      found[name] = {jsonStringField(bytes, "session_id"), jsonStringField(bytes, "reason")};
    }
  }
  return found;
}

// The sessions that ended well by what lies there.
std::set<std::string> EndedWell(const Files& files) {
  std::set<std::string> sessions;
  for (const auto& [name, conclusion] : Conclusions(files)) {
    if (conclusion.second == "clean") {
      sessions.insert(conclusion.first);
    }
  }
  for (const auto& [name, bytes] : files) {
    if (name == kClean || (name == kRecord && jsonStringField(bytes, "state") == "completed")) {
      sessions.insert(jsonStringField(bytes, "session_id"));
    }
  }
  return sessions;
}

void CheckConclusions(const Files& before, const Files& after, const EvidenceScenario& scenario,
                      bool faulty) {
  const auto concluded = Conclusions(after);
  for (const auto& [name, conclusion] : Conclusions(before)) {
    const auto found = concluded.find(name);
    EXPECT_TRUE(found == concluded.end() || found->second == conclusion) << name << " changed";
  }
  if (faulty && scenario.faults_confuse) {
    return;
  }
  const std::set<std::string> ended_well = EndedWell(before);
  for (const auto& [name, conclusion] : concluded) {
    const auto& [session, reason] = conclusion;
    EXPECT_TRUE(reason != "clean" || ended_well.contains(session)) << name;
    const auto truth = scenario.sessions.find(session);
    EXPECT_TRUE(truth == scenario.sessions.end() || reason == truth->second ||
                (faulty && reason == "unexplained"))
        << name << " says " << reason;
  }
}

// What holds once a whole process has imported: nothing lies flat, and nothing is raw.
void CheckImported(const Files& files) {
  for (const auto& [name, bytes] : files) {
    EXPECT_TRUE(IsSibling(name) || name.starts_with("incidents/")) << name;
    EXPECT_EQ(bytes.find(kSecret), std::string::npos) << name;
  }
}

// What holds behind the import after it. That one is needed for an unfinished incident of an
// unknown session alone, whose sentinel stands while another import is of an unknown session.
void CheckSettled(EvidenceWorld& world) {
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_THAT(world.Pending(), testing::IsEmpty());
  const auto settled = world.Snapshot();
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_TRUE(world.Snapshot() == settled) << "an import with nothing to do changed something";
}

void CheckListing(const MemoryFiles::Disk& disk) {
  EvidenceWorld world;
  world.files.Become(disk);
  const auto pending = world.Pending();
  for (const IncidentRow& row : world.Start().getPendingIncidents(nullptr)) {
    EXPECT_THAT(pending, testing::Not(testing::Contains(row.id)));
    EXPECT_NE(world.Get("incidents/" + row.id + "/manifest.json"), "<absent>");
  }
}

}  // namespace

void CheckEvidence(EvidenceWorld& world, const EvidenceScenario& scenario, bool faulty) {
  const Files files = world.Snapshot();
  for (const std::string& payload : scenario.payloads) {
    const auto holders = std::ranges::count_if(files, [&](const auto& file) {
      return !IsSibling(file.first) && ("\n" + file.second).find(payload) != std::string::npos;
    });
    EXPECT_TRUE(holders == 1 || (holders == 0 && MayBeEvicted(world)))
        << holders << " files hold " << payload;
  }
  for (const auto& [session, reason] : scenario.sessions) {
    const auto names_it = [&session = session](const auto& file) {
      return !IsSibling(file.first) &&
             (file.first == "crash-output." + session + ".log" ||
              file.second.find(R"("session_id":")" + session + '"') != std::string::npos);
    };
    EXPECT_TRUE(std::ranges::any_of(files, names_it) || MayBeEvicted(world) ||
                (faulty && (scenario.faults_confuse || HasNameless(files))))
        << "nothing names " << session;
  }
}

void CheckRecovery(EvidenceWorld& world, const EvidenceScenario& scenario, bool faulty,
                   CountingPlan plan) {
  CheckEvidence(world, scenario, faulty);
  CheckListing(world.files.After(Fate::kKept));
  const Files before = world.Snapshot();
  world.Restart(std::move(plan), [](Process& process) {
    std::string failure;
    EXPECT_TRUE(process.importPendingIncidents(&failure)) << failure;
  });
  CheckConclusions(before, world.Snapshot(), scenario, faulty);
  CheckEvidence(world, scenario, faulty);
  CheckImported(world.Snapshot());
  CheckSettled(world);
}

}  // namespace korvane::test
