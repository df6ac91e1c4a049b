// What lies flat at a session's boundary becomes one incident: files in, files and rows out.
#include "diagnostics_evidence/incident_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kLog[] = "libbox_session.log";

using Fields = std::map<std::string, std::string>;

// What a record says of a session's close, and of the process's exit.
Fields Close(const std::string& session, const std::string& state, const std::string& reason = "") {
  return {{"session_id", session}, {"state", state}, {"reason", reason}, {"result_at_utc", "t5"}};
}
Fields Quit(const std::string& session, Fields close = {}) {
  close.insert({{"process_exit_session", session},
                {"process_exit_reason", "tray_quit"},
                {"process_exit_state", "requested"}});
  return close;
}

TEST(IncidentImport, ConcludesHowTheSessionEnded) {
  struct Row {
    const char* what;
    std::map<std::string, std::string> markers;  // name and session
    Fields record;
    const char* reason;
    const char* marker_state;
    const char* session = "s1";
  };
  const Fields failed = Close("s1", "failed");
  const Fields completed = Close("s1", "completed");
  const Fields by_updater = Close("s1", "requested", "updater");
  const Fields by_user = Close("s1", "requested", "user_disconnect");
  const Row rows[] = {
      {"a clean end", {{kClean, "s1"}}, completed, "clean", "clean_shutdown"},
      {"a crash", {{kActive, "s1"}}, {}, "unexplained", "session_active"},
      {"a failed start", {{kFailedStart, "s1"}}, failed, "failed_start", "failed_start"},
      {"a kill in a quit", {{kActive, "s1"}}, Quit("s1"), "intentional_exit", "session_active"},
      {"a failed close in a quit", {}, Quit("", failed), "intentional_exit", "none"},
      {"a failed close, but clean", {{kClean, "s1"}}, failed, "unexplained", "clean_shutdown"},
      {"a completed close alone", {}, completed, "clean", "none"},
      {"completed, but active", {{kActive, "s1"}}, completed, "unexplained", "session_active"},
      {"for the updater", {{kActive, "s1"}}, by_updater, "intentional_exit", "session_active"},
      {"for the user", {{kActive, "s1"}}, by_user, "unexplained", "session_active"},
      {"another's close",
       {{kActive, "s1"}},
       Close("s2", "failed"),
       "unexplained",
       "session_active"},
      {"another's exit", {{kActive, "s1"}}, Quit("s2"), "unexplained", "session_active"},
      {"another's end",
       {{kActive, "s2"}, {kClean, "s1"}},
       {},
       "unexplained",
       "session_active",
       "s2"},
      {"nobody's end", {{kClean, "unknown"}, {kActive, "s1"}}, {}, "clean", "clean_shutdown"},
      {"a request alone", {}, Close("s1", "requested"), "unexplained", "none"},
      {"a crash output alone", {{"crash-output.s7.log", "-"}}, {}, "unexplained", "none", "s7"},
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
    EXPECT_EQ(incidents[0].started_at_utc, row.markers.contains(kActive) ? marked : "");
    const auto owner = row.record.find("session_id");
    const bool closed = owner != row.record.end() && owner->second == row.session;
    const bool ended = incidents[0].marker_state == "clean_shutdown" ||
                       incidents[0].marker_state == "failed_start";
    EXPECT_EQ(incidents[0].ended_at_utc, ended ? marked : (closed ? "t5" : ""));
    for (const char* name : {kActive, kClean, kFailedStart, kRecord}) {
      EXPECT_EQ(world.Get(name), "<absent>");
    }
    EXPECT_THAT(world.Pending(), IsEmpty());
  }
}

TEST(IncidentImport, WritesTheManifestByteForByteAndKeepsWhatWasConcludedFirst) {
  EvidenceWorld world;
  const std::string folder = "incidents/20260101T000000Z-s1/";
  world.Put(folder + "manifest.json",
            R"({"incident_id":"20260101T000000Z-s1","session_id":"s1","reason":"clean",)"
            R"("reason_source":"import","reimport_count":2,"imported_at_utc":"t1"})");
  world.Put(folder + "session.log", "first part at 10.0.0.1\n");
  world.Put(folder + "a folder/of the user", "x");
  world.Put(kActive, MarkerText("s1"));
  world.Put(kFailedStart, MarkerText("s0"));
  world.Put(kRecord, R"({"session_id":"s1","reason":"user_disconnect","state":"failed",)"
                     R"("process_exit_session":"s1","process_exit_reason":"tray_quit",)"
                     R"("process_exit_state":"requested","later_intent":"updater",)"
                     R"("requested_at_utc":"t2","result_at_utc":"t3","close_code":-7,)"
                     R"("close_error":"dial 10.0.0.1 \"x\""})");
  world.Put(kLog, "second part\n");
  world.Put("libbox_last_crash.log", "older\n");
  world.Put("crash-output.s1.log", "panic\n");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_EQ(
      world.Get(folder + "manifest.json"),
      R"({"schema":1,"incident_id":"20260101T000000Z-s1","session_id":"s1",)"
      R"("session_id_source":"marker","build_id":"2.16.10+336","reason":"clean",)"
      R"("reason_source":"import","reimport_count":3,)"
      R"("reimport_observed_reason":"intentional_exit","crash_output_ambiguous":"",)"
      R"("marker_state":"session_active","app_started_at_utc":"2026-01-02T03:04:05Z",)"
      R"("app_ended_at_utc":"t3","imported_at_utc":"t1","import_trigger":"boot",)"
      R"("session_log_bytes":29,"has_crash_output":true,"crash_output_scan":"fatal",)"
      R"("crash_output_bytes":6,"shutdown":{"process_exit_reason":"tray_quit",)"
      R"("process_exit_state":"requested","intent":"user_disconnect","later_intent":"updater",)"
      R"("state":"failed","requested_at_utc":"t2","result_at_utc":"t3","close_code":-7,)"
      R"("close_error":"dial [ip] \"x\""},"import_errors":["failed-start marker belongs to )"
      R"-(session s0, not s1 (leftover, not used to classify)",)-"
      R"-("re-imported into the existing incident directory of this session (a previous import )-"
      R"-(did not finish clearing its sources)","archived session.log as session.2.log: this )-"
      R"(incident already held a session.log from an earlier import, so the fragment is NOT )"
      R"(known to belong to session s1"]})");
  EXPECT_TRUE(world.errors.Has(
      "[LibboxLogBuffer] Keeping archived reason 'clean' for incident 20260101T000000Z-s1; this "
      "pass observed 'intentional_exit'"));
  EXPECT_EQ(world.Get(folder + "session.log"), "first part at [ip]\n");
  EXPECT_EQ(world.Get(folder + "session.2.log"), "second part\n");
  EXPECT_EQ(world.Get(folder + "legacy_last_crash.log"), "older\n");
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
  for (const auto& [id, session] :
       {std::pair("20260101T000000Z-s1", "s1"), std::pair("20260102T000000Z-x", "unknown")}) {
    EXPECT_EQ(world.Get(std::string("incidents/") + id + "/manifest.json"),
              std::string(R"({"schema":1,"incident_id":")") + id + R"(","session_id":")" + session +
                  R"(","build_id":"2.16.10+336","reason":"unexplained",)"
                  R"("reason_source":"recovered_placeholder","marker_state":"none",)"
                  R"("imported_at_utc":"2024-01-02T03:04:05Z","import_trigger":"boot",)"
                  R"("import_errors":["manifest recovered after an interrupted import"]})");
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

}  // namespace
}  // namespace korvane::test
