// What lies flat at a session's boundary becomes one incident: files in, files and rows out.
#include "diagnostics_evidence/incident_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kLog[] = "libbox_session.log";

using Fields = std::map<std::string, std::string>;

TEST(IncidentImport, ConcludesHowTheSessionEnded) {
  struct Row {
    const char* what;
    std::map<std::string, std::string> markers;  // name and session
    Fields record;
    const char* reason;
    const char* marker_state;
    const char* session;
  };
  const Row rows[] = {
      {"a clean end",
       {{kClean, "s1"}},
       {{"session_id", "s1"}, {"state", "completed"}},
       "clean",
       "clean_shutdown",
       "s1"},
      {"a crash", {{kActive, "s1"}}, {}, "unexplained", "session_active", "s1"},
      {"a start that failed",
       {{kFailedStart, "s1"}},
       {{"session_id", "s1"}, {"state", "failed"}},
       "failed_start",
       "failed_start",
       "s1"},
      {"a kill during tray quit",
       {{kActive, "s1"}},
       {{"session_id", "s1"},
        {"process_exit_reason", "tray_quit"},
        {"process_exit_state", "requested"},
        {"process_exit_session", "s1"}},
       "intentional_exit",
       "session_active",
       "s1"},
      {"a failed close on tray quit",
       {},
       {{"session_id", "s1"},
        {"state", "failed"},
        {"process_exit_reason", "tray_quit"},
        {"process_exit_state", "requested"}},
       "intentional_exit",
       "none",
       "s1"},
      {"a failed close beside a clean marker",
       {{kClean, "s1"}},
       {{"session_id", "s1"}, {"state", "failed"}},
       "unexplained",
       "clean_shutdown",
       "s1"},
      {"a completed close without markers",
       {},
       {{"session_id", "s1"}, {"state", "completed"}},
       "clean",
       "none",
       "s1"},
      {"a completed close, seen running afterwards",
       {{kActive, "s1"}},
       {{"session_id", "s1"}, {"state", "completed"}},
       "unexplained",
       "session_active",
       "s1"},
      {"a close asked for by the updater",
       {{kActive, "s1"}},
       {{"session_id", "s1"}, {"state", "requested"}, {"reason", "updater"}},
       "intentional_exit",
       "session_active",
       "s1"},
      {"a close asked for by the user",
       {{kActive, "s1"}},
       {{"session_id", "s1"}, {"state", "requested"}, {"reason", "user_disconnect"}},
       "unexplained",
       "session_active",
       "s1"},
      {"a close of another session",
       {{kActive, "s1"}},
       {{"session_id", "s2"}, {"state", "failed"}},
       "unexplained",
       "session_active",
       "s1"},
      {"an exit of another session",
       {{kActive, "s1"}},
       {{"process_exit_session", "s2"},
        {"process_exit_reason", "tray_quit"},
        {"process_exit_state", "requested"}},
       "unexplained",
       "session_active",
       "s1"},
      {"a leftover clean marker",
       {{kActive, "s2"}, {kClean, "s1"}},
       {},
       "unexplained",
       "session_active",
       "s2"},
      {"a marker of nobody",
       {{kClean, "unknown"}, {kActive, "s1"}},
       {},
       "clean",
       "clean_shutdown",
       "s1"},
      {"a record alone",
       {},
       {{"session_id", "s1"}, {"state", "requested"}, {"result_at_utc", "t5"}},
       "unexplained",
       "none",
       "s1"},
      {"one crash output alone", {{"crash-output.s7.log", "-"}}, {}, "unexplained", "none", "s7"},
      {"a log alone", {{kLog, "-"}}, {}, "unexplained", "none", "unknown"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EvidenceWorld world;
    for (const auto& [name, session] : row.markers) {
      world.Put(name, MarkerText(session));
    }
    if (!row.record.empty()) {
      world.Put(kRecord, RecordText(row.record));
    }
    std::string failure;
    EXPECT_TRUE(world.Start().importPendingIncidents(&failure)) << failure;
    const auto incidents = world.evidence().getPendingIncidents(nullptr);
    ASSERT_EQ(incidents.size(), 1U);
    EXPECT_EQ(incidents[0].reason, row.reason);
    EXPECT_EQ(incidents[0].marker_state, row.marker_state);
    EXPECT_EQ(incidents[0].session_id, row.session);
    const std::string marked = "2026-01-02T03:04:05Z";
    const auto result = row.record.find("result_at_utc");
    const bool ended = incidents[0].marker_state == "clean_shutdown" ||
                       incidents[0].marker_state == "failed_start";
    EXPECT_EQ(incidents[0].started_at_utc, row.markers.contains(kActive) ? marked : "");
    EXPECT_EQ(incidents[0].ended_at_utc,
              ended ? marked : (result != row.record.end() ? result->second : ""));
    for (const char* name : {kActive, kClean, kFailedStart, kRecord}) {
      EXPECT_EQ(world.Get(name), "<absent>");
    }
    EXPECT_THAT(world.Pending(), IsEmpty());
  }
}

TEST(IncidentImport, WritesTheManifestByteForByte) {
  EvidenceWorld world;
  world.Put(kActive, MarkerText("0a1b1234abcd07"));
  world.Put(kFailedStart, MarkerText("older"));
  world.Put(kRecord, R"({"schema":1,"session_id":"older","reason":"user_disconnect",)"
                     R"("state":"completed","requested_at_utc":"2026-01-01T00:00:00Z",)"
                     R"("result_at_utc":"2026-01-01T00:00:01Z",)"
                     R"("close_code":-7,"close_error":"dial 10.0.0.1 failed"})");
  world.Put(kLog, "2026-01-02T03:04:06Z state=up\n");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_EQ(
      world.Get("incidents/20240102T030405Z-0a1b1234abcd07/manifest.json"),
      R"({"schema":1,"incident_id":"20240102T030405Z-0a1b1234abcd07","session_id":"0a1b1234abcd07",)"
      R"("session_id_source":"marker","build_id":"2.16.10+336","reason":"unexplained",)"
      R"("reason_source":"import","reimport_count":0,"reimport_observed_reason":"",)"
      R"("crash_output_ambiguous":"","marker_state":"session_active",)"
      R"("app_started_at_utc":"2026-01-02T03:04:05Z","app_ended_at_utc":"",)"
      R"("imported_at_utc":"2024-01-02T03:04:05Z","import_trigger":"boot","session_log_bytes":30,)"
      R"("has_crash_output":false,"crash_output_scan":"header_only","crash_output_bytes":0,)"
      R"("shutdown":{"process_exit_reason":"","process_exit_state":"","intent":"user_disconnect",)"
      R"("later_intent":"","state":"","requested_at_utc":"2026-01-01T00:00:00Z",)"
      R"("result_at_utc":"2026-01-01T00:00:01Z","close_code":-7,"close_error":"dial [ip] failed"},)"
      R"("import_errors":["failed-start marker belongs to session older, not 0a1b1234abcd07 )"
      R"-((leftover, not used to classify)","foreign_or_sessionless_intent: the shutdown record is )-"
      R"(owned by )"
      R"('older', not 0a1b1234abcd07; its close result classifies nothing here"]})");
}

TEST(IncidentImport, ResumesWhereAFormerOneStopped) {
  for (const bool finished : {false, true}) {
    EvidenceWorld world;
    const std::string folder = "incidents/20260101T000000Z-s1/";
    if (!finished) {
      world.Put(folder + "pending", R"({"schema":1,"session_id":"s1"})");
    }
    world.Put(folder + "manifest.json",
              R"({"schema":1,"incident_id":"20260101T000000Z-s1","session_id":"s1",)"
              R"("reason":"clean","reason_source":"import","reimport_count":2,)"
              R"("imported_at_utc":"2026-01-01T00:00:00Z"})");
    world.Put(folder + "session.log", "first part\n");
    world.Put(kActive, MarkerText("s1"));
    world.Put(kLog, "second part\n");
    EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
    EXPECT_TRUE(world.errors.Has(
        "[LibboxLogBuffer] Keeping archived reason 'clean' for incident 20260101T000000Z-s1; this "
        "pass observed 'unexplained'"));
    const auto rows = world.evidence().getPendingIncidents(nullptr);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].reason, "clean");
    EXPECT_EQ(rows[0].reimport_count, 3);
    EXPECT_EQ(rows[0].imported_at_utc, "2026-01-01T00:00:00Z");
    EXPECT_THAT(rows[0].import_errors,
                ElementsAre("re-imported into the existing incident directory of this session (a "
                            "previous import did not finish clearing its sources)",
                            "archived session.log as session.2.log: this incident already held a "
                            "session.log from an earlier import, so the fragment is NOT known to "
                            "belong to session s1"));
    EXPECT_EQ(world.Get(folder + "session.log"), "first part\n");
    EXPECT_EQ(world.Get(folder + "session.2.log"), "second part\n");
  }
}

TEST(IncidentImport, FinishesWhatOnlyItsSentinelHoldsBack) {
  EvidenceWorld world;
  world.Put("incidents/20260101T000000Z-s1/pending", R"({"session_id":"s1"})");
  world.Put("incidents/20260101T000000Z-s1/manifest.json", R"({"session_id":"s1"})");
  world.Put(kActive, MarkerText("s2"));
  world.Put("crash-output.s1.log", "panic\n");
  world.Start();
  // Something flat still names its session when the import stops at the new folder.
  world.Suffer(
      FailOnce(2, [](const Operation& o) { return o.name == "Files.CreateDirectories"; }),
      [](LibboxLogBuffer& evidence) { EXPECT_FALSE(evidence.importPendingIncidents(nullptr)); });
  EXPECT_THAT(world.Pending(), ElementsAre("20260101T000000Z-s1"));

  world.Remove(kActive);
  world.Remove("crash-output.s1.log");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_THAT(world.Pending(), IsEmpty());
}

TEST(IncidentImport, GivesAFolderWithoutAManifestAPlaceholder) {
  EvidenceWorld world;
  world.Put("incidents/20260101T000000Z-s1/pending", R"({"session_id":"s1"})");
  world.Put("incidents/20260102T000000Z-x/session.log", "left\n");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  const auto rows = world.evidence().getPendingIncidents(nullptr);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].session_id, "unknown");
  EXPECT_EQ(rows[1].session_id, "s1");
  EXPECT_THAT(rows[1].import_errors, ElementsAre("manifest recovered after an interrupted import"));
}

TEST(IncidentImport, StopsBeforeHalfOfTheEvidence) {
  struct Row {
    const char* unreadable;
    const char* label;
  };
  const Row rows[] = {{kActive, "session-active"},
                      {kClean, "clean-shutdown"},
                      {kFailedStart, "failed-start"},
                      {kRecord, "shutdown-record"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    EvidenceWorld world;
    world.Put(kActive, MarkerText("s1"));
    world.Put(row.unreadable,
              row.unreadable == kRecord ? RecordText({{"session_id", "s1"}}) : MarkerText("s1"));
    world.Put(kLog, "kept\n");
    world.Start();
    const auto before = world.Snapshot();
    std::string failure;
    // The reads of the markers begin with the first one that is opened.
    for (std::size_t nth = 1; failure.find(row.label) == std::string::npos && nth < 20; ++nth) {
      world.Start();
      world.Suffer(FailOnce(nth, [](const Operation& o) { return o.name == "Files.Open"; }),
                   [&](LibboxLogBuffer& evidence) {
                     EXPECT_FALSE(evidence.importPendingIncidents(&failure));
                   });
    }
    EXPECT_EQ(failure, std::string("import aborted: ") + row.label +
                           " marker exists but could not be read; sources untouched, retry at the "
                           "next session boundary");
    auto after = world.Snapshot();
    EXPECT_THAT(after["incidents/retention.log"],
                HasSubstr(std::string(" import_aborted marker_unreadable ") + row.label));
    after.erase("incidents/retention.log");
    EXPECT_EQ(after, before);
  }
}

// One of each kind: what is archived, placed, cleared and evicted, and leftovers of another
// session.
void LeaveOneOfEach(EvidenceWorld& world) {
  world.Put(kActive, MarkerText("s1"));
  world.Put(kClean, MarkerText("s0"));
  world.Put(kRecord, RecordText({{"session_id", "s1"},
                                 {"process_exit_session", "s0"},
                                 {"process_exit_reason", "tray_quit"}}));
  world.Put("crash-output.s1.log", "panic\n");
  world.Put("crash-output.s0.log", "panic\n");
  world.Put("incidents/20230101T000000Z-old/manifest.json", R"({"reason":"unexplained"})");
  world.Put("incidents/20240101T000000Z-bare/pending", R"({"session_id":"bare"})");
  world.Put("incidents/20240101T000001Z-done/pending", R"({"session_id":"done"})");
  world.Put("incidents/20240101T000001Z-done/manifest.json", R"({"session_id":"done"})");
}

// Everything that an import, a listing and two acknowledgements say under the plan. Gives how many
// operations there were.
std::size_t CollectSaid(const CountingPlan& plan, const std::string& id,
                        std::set<std::string>& said) {
  EvidenceWorld world;
  LeaveOneOfEach(world);
  world.Start();
  const std::size_t counted = world.Suffer(plan, [&](LibboxLogBuffer& evidence) {
    std::string failure;
    evidence.importPendingIncidents(&failure);
    said.insert(failure);
    for (const IncidentRow& row : evidence.getPendingIncidents(&failure)) {
      said.insert(row.import_errors.begin(), row.import_errors.end());
    }
    said.insert(failure);
    evidence.acknowledgeIncident(id, 7);
    evidence.acknowledgeIncident(id, 0);
  });
  const auto journal = world.evidence().evictedIncidents(50);
  said.insert(journal.begin(), journal.end());
  const auto lines = world.errors.lines();
  said.insert(lines.begin(), lines.end());
  return counted;
}

TEST(IncidentImport, SaysInItsWordsWhatFailed) {
  const std::string id = "20240102T030405Z-s1";
  std::set<std::string> said;
  for (const auto plan : {FailOnce, FailFrom}) {
    for (std::size_t at = 1; CollectSaid(plan(at, FallibleOperation), id, said) >= at; ++at) {
    }
  }
  const std::string words = platform::RealOs().text->ErrorMessage(kInjectedError);
  const std::string time = "2024-01-02T03:04:05Z ";
  const std::string scan = time + "import_aborted incidents_scan_incomplete error=" + words;
  const std::string root = time + "import_aborted base_scan_incomplete error=" + words;
  const std::string folder = EvidenceWorld().Start().incidentsDirectory() + id;
  const std::string withheld = "[] Withholding incident " + id + ": ";
  const std::string refused = "[] Refusing to acknowledge incident " + id + ": ";
  const std::string pending = "[] Failed to clear pending sentinel for incident ";
  const std::string foreign =
      "foreign_or_sessionless_intent: the process-exit intent 'tray_quit' is owned by 's0', not "
      "s1; "
      "it classifies nothing here";
  // "[]" stands for what is in front of each line of the error stream.
  const std::string texts[] = {
      "[] Incidents directory unavailable (" + words +
          "); previous-session evidence cannot be archived",
      "incidents directory unavailable: " + words,
      "[] Failed to recover manifest for 20240101T000000Z-bare; incident stays pending",
      "[] " + scan,
      scan,
      "[] " + root,
      root,
      "[] Failed to create incident directory " + folder + " (" + words +
          "); leaving previous-session evidence in place",
      "incident directory could not be created: " + words,
      "[] Pending sentinel not persisted for " + id +
          "; leaving previous-session evidence in place",
      "pending sentinel could not be written",
      "[] Failed to write manifest for incident " + id +
          "; it stays pending and the previous-session markers are KEPT for the next import",
      "manifest could not be written",
      "[] Manifest for incident " + id +
          " could not be verified after the write; it stays pending and the previous-session "
          "markers are KEPT",
      "manifest did not verify after the write",
      "[] Incident " + id +
          " has an unmoved source file; keeping the pending sentinel and ALL previous-session "
          "markers for a retry",
      "a source file could not be moved into the incident",
      "[] remove libbox_session_active: " + words,
      "remove libbox_session_active: " + words,
      "[] Failed to record consume errors in the manifest of incident " + id,
      pending + id + ": " + words,
      pending + "20240101T000001Z-done: " + words,
      "[] Archived incident " + id +
          " reason=unexplained marker=session_active crash_output=yes resumed=no import_errors=2",
      foreign,
      "clean-shutdown marker belongs to session s0, not s1 (leftover, not used to classify)",
      "[] Size scan failed for incident " + id + ": " + words,
      time + "size_scan_failed " + id + " error=" + words,
      "[] Retention scan failed: " + words,
      "[] Failed to evict incident 20230101T000000Z-old: " + words,
      "[] Evicted incident 20230101T000000Z-old (cause=age)",
      "[] Journal write failed: size_scan_failed " + id + " error=" + words,
      "[] Journal fault file also unwritable",
      "[] Privacy migration failed; incident withheld",
      "[] file scan of this incident failed: " + words + " (" + id + ")",
      "[] an entry in this incident could not be classified (transient stat error) (" + id + ")",
      "[] Failed to list incidents: " + words,
      withheld + "a crash-output file is present but unreadable",
      withheld + "its file scan did not complete",
      refused + "caller saw import generation 7, the archive is now at 0",
      refused + "an entry could not be classified (" + words + ")",
      refused + "a crash-output file is present but unreadable",
      refused + "its directory could not be enumerated (" + words + ")",
  };
  for (const std::string& text : texts) {
    const bool printed = text.starts_with("[]");
    EXPECT_TRUE(said.contains(printed ? "[LibboxLogBuffer]" + text.substr(2) : text)) << text;
  }
}

TEST(IncidentImport, RunsOnceAtBootAndNeverBehindASession) {
  EvidenceWorld world;
  world.Put(kActive, MarkerText("s1"));
  LibboxLogBuffer& first = world.Start();
  EXPECT_TRUE(first.importPendingIncidents(nullptr));
  world.Put(kActive, MarkerText("s2"));
  std::string failure = "kept from before";
  EXPECT_FALSE(first.importPendingIncidents(&failure));
  EXPECT_EQ(failure, "");

  LibboxLogBuffer& second = world.Start();
  second.beginSession();
  EXPECT_FALSE(second.importPendingIncidents(&failure));
  EXPECT_EQ(failure, "");
  EXPECT_TRUE(world.errors.Has("[LibboxLogBuffer] Declining the boot import ('boot'): session " +
                               second.currentSessionId() + " has already started in this process"));
  EXPECT_EQ(world.Incidents().size(), 2U);
}

TEST(IncidentImport, DefersTheNextMarkerOnceAndJournalsTheSecondTime) {
  EvidenceWorld world;
  world.Put(kActive, MarkerText("s1"));
  world.Start();
  const auto fail_import = [](LibboxLogBuffer& evidence) { evidence.beginSession(); };
  const auto sentinels = [](const Operation& o) { return o.name == "Files.Rename"; };
  world.Suffer(FailFrom(1, sentinels), fail_import);
  EXPECT_EQ(world.Get(kActive), MarkerText("s1"));
  EXPECT_TRUE(world.errors.Has("[LibboxLogBuffer] DEFERRING the session marker for " +
                               world.evidence().currentSessionId() +
                               ": previous-session evidence is still flat and its identity must "
                               "not be overwritten (attempt 1)"));
  world.Suffer(FailFrom(1, sentinels), fail_import);
  const std::string session = world.evidence().currentSessionId();
  EXPECT_EQ(world.Get(kActive), MarkerText(session, "2024-01-02T03:04:05Z"));
  EXPECT_THAT(world.evidence().evictedIncidents(50),
              Contains("2024-01-02T03:04:05Z marker_deferral_abandoned session=" + session +
                       " consecutive_import_failures=2 (previous-session marker identity "
                       "overwritten)"));
}

TEST(IncidentImport, KeepsAnIdReadFromAFileInsideTheArchive) {
  EvidenceWorld world;
  world.Put(kRecord, RecordText({{"session_id", "../..\\x:<no-session>"}, {"state", "failed"}}));
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_THAT(world.Incidents(), ElementsAre("20240102T030405Z-.._.._x__no-session_"));
}

}  // namespace
}  // namespace korvane::test
