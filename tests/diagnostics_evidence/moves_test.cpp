// What an import makes of crash output and of logs that meet older ones.
#include <gtest/gtest.h>

#include <string>

#include "diagnostics_evidence/evidence_moves.h"
#include "diagnostics_evidence/evidence_room.h"
#include "diagnostics_evidence/evidence_scenarios.h"
#include "diagnostics_evidence/evidence_world.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"

namespace korvane::test {
namespace {

constexpr char kOrphanNote[] =
    R"("crash output of a session with no surviving marker; imported on its own so it is not )"
    R"(attributed to another session")";

TEST(Moves, FragmentsAreNumberedUntilTheirNumbersRunOut) {
  EvidenceWorld world;
  const std::string folder = "incidents/20240101T000000Z-s1/session";
  world.Put("incidents/20240101T000000Z-s1/pending", R"({"session_id":"s1"})");
  world.Put(folder + ".log", "earlier");
  for (int n = 2; n <= 100; ++n) {
    world.Put("libbox_session_active", MarkerText("s1"));
    world.Put("libbox_session.log", "fragment " + std::to_string(n));
    EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  }
  EXPECT_EQ(world.Get(folder + ".log"), "earlier");
  EXPECT_EQ(world.Get(folder + ".2.log"), "fragment 2");
  EXPECT_EQ(world.Get(folder + ".98.log"), "fragment 98");
  EXPECT_EQ(world.Get(folder + ".99.log"), "fragment 100");
}

TEST(Moves, AFileThatStaysFlatKeepsTheMarkers) {
  EvidenceWorld world;
  LeaveCrash(world);
  world.Put("libbox_session.log", "clean\n");
  world.Start();
  // The first takes the sentinel's name, the second moves the log.
  world.Suffer(
      FailOnce(2, [](const Operation& o) { return o.name == "Files.Rename"; }),
      [](LibboxLogBuffer& evidence) { EXPECT_FALSE(evidence.importPendingIncidents(nullptr)); });
  EXPECT_EQ(world.Get("libbox_session_active"), MarkerText("s1"));
  EXPECT_EQ(world.Get("libbox_session.log"), "clean\n");
}

TEST(Moves, CrashOutputIsNeverBlamedOnTheWrongSession) {
  EvidenceRoom room;
  KnownSessions known;
  const auto archive = [&](const std::string& session, MoveContext& context) {
    context.session_id = session;
    context.incident_dir = room.Incident("i-" + session);
    context.known_sessions = &known;
    return archiveEvidence(room.state, context, {});
  };
  MoveContext other;
  room.Put(room.Incident("i-s1") + "crash-output.other.log", "panic\n");
  EXPECT_FALSE(archive("s1", other).has_crash_output);
  EXPECT_EQ(other.errors.at(0),
            "crash-output of session other archived with session s1 (not attributed)");

  MoveContext unknown;
  room.Put(room.Incident("i-unknown") + "crash-output.a.log", "panic\n");
  EXPECT_TRUE(archive("unknown", unknown).has_crash_output);
  room.Put(room.Incident("i-unknown") + "crash-output.b.log", "panic\n");
  const EvidenceFound found = archive("unknown", unknown);
  EXPECT_FALSE(found.has_crash_output);
  EXPECT_EQ(found.crash_output_ambiguous, "crash-output.a.log crash-output.b.log");
  EXPECT_EQ(unknown.errors,
            std::vector<std::string>{"session unknown and 2 crash-output files present; none "
                                     "adopted: crash-output.a.log crash-output.b.log"});
}

TEST(Moves, AnOrphanGetsItsOwnIncident) {
  EvidenceWorld world;
  world.Put("libbox_session_active", MarkerText("b"));
  world.Put("crash-output.a.log", "crash-output armed s\n \nat 1.2.3.4\n");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  const std::string id = "20240102T030405Z-a";
  EXPECT_EQ(world.Get("incidents/" + id + "/pending"), "<absent>");
  EXPECT_EQ(world.Get("incidents/" + id + "/crash-output.a.log"),
            "crash-output armed s\n \nat [ip]\n");
  EXPECT_EQ(world.Get("incidents/" + id + "/manifest.json"),
            R"({"schema":1,"incident_id":")" + id + R"(","session_id":"a",)" +
                R"("session_id_source":"crash_output_filename","build_id":"2.16.10+336",)" +
                R"("reason":"unexplained","reason_source":"import","reimport_count":0,)" +
                R"("marker_state":"none","app_started_at_utc":"","app_ended_at_utc":"",)" +
                R"("imported_at_utc":"2024-01-02T03:04:05Z","import_trigger":"boot",)" +
                R"("session_log_bytes":0,"has_crash_output":true,"crash_output_scan":"fatal",)" +
                R"("crash_output_bytes":31,"import_errors":[)" + kOrphanNote + "]}");
  EXPECT_TRUE(
      world.errors.Has("[LibboxLogBuffer] Archived orphan crash output of session a as "
                       "incident " +
                       id + " (fatal=yes)"));
}

TEST(Moves, AnOrphanKeepsTheClassificationOfAnImportButNotOfAPlaceholder) {
  const std::string head = R"({"schema":1,"incident_id":"9-a","session_id":"a",)"
                           R"("session_id_source":"marker","build_id":"old",)"
                           R"("reason":"failed_start","reason_source":"import",)";
  const std::string rest =
      R"("marker_state":"failed_start","app_started_at_utc":"t1","app_ended_at_utc":"t2",)"
      R"("imported_at_utc":"t3","import_trigger":"session_start","session_log_bytes":77,)";
  const std::string shutdown = R"("shutdown":{"close_error":"a } \"brace\"","n":{}})";
  EvidenceWorld world;
  world.Put("libbox_session_active", MarkerText("b"));
  world.Put("incidents/9-a/manifest.json", head + R"("reimport_count":4,)" + rest + shutdown + "}");
  world.Put("incidents/8-a/manifest.json", R"({"session_id":"a"})");
  world.Put("crash-output.a.log", "crash-output armed s\n");
  world.Put("incidents/9-c/manifest.json",
            writePlaceholderManifest("9-c", "c", "old", "t9", "session_start"));
  world.Put("crash-output.c.log", "panic\n");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_EQ(world.Get("incidents/9-a/manifest.json"),
            head + R"("reimport_count":5,)" + rest +
                R"("has_crash_output":false,"crash_output_scan":"header_only",)" +
                R"("crash_output_bytes":0,)" + shutdown + R"(,"import_errors":[)" + kOrphanNote +
                R"(,"re-imported: the first classification ('failed_start') is KEPT; this pass )" +
                R"(only added crash-output evidence"]})");

  const std::string replaced = world.Get("incidents/9-c/manifest.json");
  EXPECT_EQ(jsonStringField(replaced, "reason_source"), "import");
  EXPECT_EQ(jsonStringField(replaced, "build_id"), "2.16.10+336");
  EXPECT_EQ(jsonStringField(replaced, "imported_at_utc"), "2024-01-02T03:04:05Z");
  EXPECT_EQ(jsonIntField(replaced, "reimport_count"), 1);
}

}  // namespace
}  // namespace korvane::test
