// Every scenario of the evidence with the process ended before each of its changing operations, and
// with each operation failed, once and from there on. One check says what must hold afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <set>

#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {
namespace {

using Process = LibboxLogBuffer;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kLog[] = "libbox_session.log";
constexpr char kSecret[] = "10.11.12.13";

struct Scenario {
  const char* name;
  void (*leave)(EvidenceWorld& world);  // what lies there before
  void (*act)(Process& evidence);
  // Words that stand each in one file before, and must stand in one file for good.
  std::vector<std::string> payloads;
  // Sessions that must stay named by a marker, a record or a manifest.
  std::vector<std::string> sessions;
};

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

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {"nothing to import", [](EvidenceWorld&) {}, BootImport, {}, {}},
      {"a crash", LeaveCrash, BootImport, {"log-of-s1"}, {"s1"}},
      {"a clean end",
       [](EvidenceWorld& world) {
         world.Put(kClean, MarkerText("s1"));
         world.Put(kRecord, RecordText({{"session_id", "s1"}, {"state", "completed"}}));
         world.Put(kLog, "log-of-s1\n");
       },
       BootImport,
       {"log-of-s1"},
       {"s1"}},
      {"a failed start",
       [](EvidenceWorld& world) {
         world.Put(kFailedStart, MarkerText("s1"));
         world.Put(kRecord, RecordText({{"session_id", "s1"}, {"reason", "failed_start"}}));
       },
       BootImport,
       {},
       {"s1"}},
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
       {"s1"}},
      {"a resumed import",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         LeaveIncident(world, "20240101T000000Z-s1", "clean");
         world.Put("incidents/20240101T000000Z-s1/session.log", "earlier-log-of-s1\n");
         world.Put("incidents/20240101T000000Z-s1/pending", R"({"session_id":"s1"})");
       },
       BootImport,
       {"\nearlier-log-of-s1", "\nlog-of-s1"},
       {"s1"}},
      {"crash output of its own and of another session",
       [](EvidenceWorld& world) {
         LeaveCrash(world);
         world.Put("crash-output.s1.log", "crash-output armed x\npanic-of-s1\n");
         world.Put("crash-output.s0.log", std::string("panic-of-s0 at ") + kSecret + "\n");
         world.Put("libbox_last_crash.log", "older-crash\n");
       },
       BootImport,
       {"log-of-s1", "panic-of-s1", "panic-of-s0", "older-crash"},
       {"s1"}},
      {"two crash outputs and no marker",
       [](EvidenceWorld& world) {
         world.Put("crash-output.s1.log", "panic-of-s1\n");
         world.Put("crash-output.s0.log", "panic-of-s0\n");
       },
       BootImport,
       {"panic-of-s1", "panic-of-s0"},
       {}},
      {"the next session begins",
       LeaveCrash,
       [](Process& evidence) {
         evidence.beginSession();
         evidence.recordBreadcrumb("up", false);
       },
       {"log-of-s1"},
       {"s1"}},
      {"a session runs and ends behind a crash",
       LeaveCrash,
       [](Process& evidence) {
         evidence.beginSession();
         evidence.recordShutdownIntent("user_disconnect");
         evidence.recordCloseResult(evidence.currentSessionId(), true, 0, "");
         evidence.markCleanShutdown();
       },
       {"log-of-s1"},
       // An import that fails defers this session's marker, and its end then removes the former's.
       {}},
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
       {"s1"}},
      {"an acknowledgement and a summary",
       [](EvidenceWorld& world) { LeaveIncident(world, "20240101T000000Z-a", "unexplained"); },
       [](Process& evidence) {
         evidence.acknowledgeIncident("20240101T000000Z-a", 0);
         evidence.checkForCrashLogs();
         evidence.getPendingIncidents(nullptr);
       },
       {"log-of-a"},
       {"a"}},
  };
  return scenarios;
}

// What an archived reason was, by incident; a placeholder's is no one's conclusion.
std::map<std::string, std::string> ArchivedReasons(EvidenceWorld& world) {
  std::map<std::string, std::string> reasons;
  for (const auto& [name, bytes] : world.Snapshot()) {
    if (name.ends_with("/manifest.json")) {
      const auto manifest = nlohmann::json::parse(bytes, nullptr, /*allow_exceptions=*/false);
      if (manifest.value("reason_source", "") == "import") {
        reasons[name] = manifest.value("reason", "");
      }
    }
  }
  return reasons;
}

bool IsSibling(const std::string& name) { return name.ends_with(".tmp"); }

// Whether the incident of a payload's session went as the journal says.
bool WasEvicted(const std::string& journal, const std::string& payload) {
  const std::string session = payload.substr(payload.rfind('-'));
  return journal.find(" evicted ") != std::string::npos &&
         journal.find(session + " reason=") != std::string::npos;
}

// What holds at every moment, also in the middle of things.
void CheckAlways(EvidenceWorld& world, const Scenario& scenario) {
  const auto files = world.Snapshot();
  for (const std::string& payload : scenario.payloads) {
    const auto holders = std::ranges::count_if(files, [&](const auto& file) {
      return !IsSibling(file.first) && ("\n" + file.second).find(payload) != std::string::npos;
    });
    EXPECT_TRUE(holders == 1 ||
                (holders == 0 && WasEvicted(world.Get("incidents/retention.log"), payload)))
        << holders << " files hold " << payload;
  }
  for (const std::string& session : scenario.sessions) {
    EXPECT_TRUE(std::ranges::any_of(files, [&](const auto& file) {
      const bool names_one = !IsSibling(file.first) && !file.first.ends_with(".log");
      return names_one &&
             file.second.find(R"("session_id":")" + session + '"') != std::string::npos;
    })) << session;
  }
}

// What holds once a whole process has imported: nothing lies flat, and nothing is raw.
void CheckImported(EvidenceWorld& world, const Scenario& scenario) {
  CheckAlways(world, scenario);
  for (const auto& [name, bytes] : world.Snapshot()) {
    if (!IsSibling(name)) {
      EXPECT_TRUE(name.starts_with("incidents/")) << name;
      EXPECT_EQ(bytes.find(kSecret), std::string::npos) << name;
    }
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

void CheckListing(EvidenceWorld& world) {
  const auto pending = world.Pending();
  for (const IncidentRow& row : world.Start().getPendingIncidents(nullptr)) {
    EXPECT_THAT(pending, testing::Not(testing::Contains(row.id)));
    EXPECT_NE(world.Get("incidents/" + row.id + "/manifest.json"), "<absent>");
  }
}

void ExpectReasonsKept(EvidenceWorld& world, const std::map<std::string, std::string>& before) {
  const auto after = ArchivedReasons(world);
  for (const auto& [name, reason] : before) {
    const auto found = after.find(name);
    EXPECT_TRUE(found == after.end() || found->second == reason) << name;  // evicted, or the same
  }
}

void CheckRecovery(EvidenceWorld& world, const Scenario& scenario) {
  CheckAlways(world, scenario);
  CheckListing(world);
  const auto reasons = ArchivedReasons(world);
  std::string failure;
  EXPECT_TRUE(world.Start().importPendingIncidents(&failure)) << failure;
  ExpectReasonsKept(world, reasons);
  CheckImported(world, scenario);
  CheckSettled(world);
}

EvidenceWorld& Prepare(EvidenceWorld& world, const Scenario& scenario) {
  scenario.leave(world);
  world.Start();
  return world;
}

using MakePlan = CountingPlan (*)(std::size_t operation);

// Runs each scenario with the plan at the first operation, the second, and so on, until a run
// meets none; gives the number of runs that met one.
std::size_t Sweep(MakePlan plan) {
  std::size_t runs = 0;
  for (const Scenario& scenario : Scenarios()) {
    for (std::size_t operation = 1;; ++operation) {
      SCOPED_TRACE(std::string(scenario.name) + ", operation " + std::to_string(operation));
      EvidenceWorld world;
      Prepare(world, scenario).Suffer(plan(operation), scenario.act);
      const bool met = world.counted() >= operation;
      CheckRecovery(world, scenario);
      if (!met || testing::Test::HasFailure()) {
        break;
      }
      ++runs;
    }
  }
  return runs;
}

TEST(EvidenceSweep, LosesNothingToACrashBeforeAnyOperation) {
  const std::size_t runs = Sweep(EvidenceWorld::CrashAt);
  std::cout << runs << " crashes\n";
  EXPECT_GT(runs, 150U);
}

TEST(EvidenceSweep, LosesNothingToAnOperationThatFailsOnce) {
  const std::size_t runs = Sweep([](std::size_t operation) { return FailOnce(operation); });
  std::cout << runs << " faults\n";
  EXPECT_GT(runs, 500U);
}

TEST(EvidenceSweep, LosesNothingToOperationsThatFailFromThereOn) {
  const std::size_t runs = Sweep([](std::size_t operation) { return FailFrom(operation); });
  std::cout << runs << " lasting faults\n";
  EXPECT_GT(runs, 500U);
}

// The preference: whatever happens in the middle, the next start is either wholly on or wholly off,
// and off leaves nothing; a change can be made again.
void CheckPreference(EvidenceWorld& world) {
  const bool on = world.Start().getWindowsDiagnosticsEnabled();
  const auto files = world.Snapshot();
  const bool revoked = files.contains("windows_diagnostics_revoked") ||
                       files.contains("windows_diagnostics_revoked.tmp");
  EXPECT_FALSE(on && revoked);
  if (!on) {
    for (const auto& [name, bytes] : files) {
      EXPECT_TRUE(name.starts_with("windows_diagnostics_revoked")) << name;
    }
  }
  EXPECT_TRUE(world.evidence().setWindowsDiagnosticsEnabled(true, nullptr));
  EXPECT_TRUE(world.Start().getWindowsDiagnosticsEnabled());
  EXPECT_TRUE(world.evidence().setWindowsDiagnosticsEnabled(false, nullptr));
  EXPECT_FALSE(world.Start().getWindowsDiagnosticsEnabled());
}

TEST(EvidenceSweep, LeavesThePreferenceOnOrOffAndNothingBehindWhenOff) {
  const MakePlan plans[] = {EvidenceWorld::CrashAt, [](std::size_t at) { return FailOnce(at); },
                            [](std::size_t at) { return FailFrom(at); }};
  for (const bool enable : {true, false}) {
    for (const MakePlan plan : plans) {
      for (std::size_t operation = 1;; ++operation) {
        SCOPED_TRACE((enable ? "on, operation " : "off, operation ") + std::to_string(operation));
        EvidenceWorld world(/*captures=*/!enable);
        if (!enable) {
          LeaveCrash(world);
          LeaveIncident(world, "20240101T000000Z-a", "clean");
        }
        world.Start();
        world.Suffer(plan(operation), [enable](Process& evidence) {
          evidence.setWindowsDiagnosticsEnabled(enable, nullptr);
        });
        const bool met = world.counted() >= operation;
        CheckPreference(world);
        if (!met || HasFailure()) {
          break;
        }
      }
    }
  }
}

}  // namespace
}  // namespace korvane::test
