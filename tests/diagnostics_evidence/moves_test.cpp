#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_moves.h"
#include "diagnostics_evidence/evidence_room.h"
#include "diagnostics_evidence/json_text.h"

namespace korvane {
namespace {

using test::EvidenceRoom;
using Texts = std::vector<std::string>;

constexpr char kHeader[] = "crash-output armed s\n";

// An import in its middle: an incident of one session, and what its moves share.
class Moves : public ::testing::Test {
 protected:
  void Begin(const std::string& session) {
    context_ = MoveContext();
    context_.session_id = session;
    context_.import_trigger = "boot";
    context_.incident_dir = room_.Incident("i-" + session);
    context_.known_sessions = &known_;
  }
  EvidenceFound Archive(const Texts& crash_outputs = {}) {
    return archiveEvidence(room_.state, context_, crash_outputs);
  }
  std::string Flat(const std::string& name) { return room_.state.base_dir + name; }
  std::string Archived(const std::string& name) { return room_.Get(context_.incident_dir + name); }
  bool ArchiveOrphan(const std::string& session) {
    return archiveOrphanCrashOutput(room_.state, context_, session,
                                    Flat("crash-output." + session + ".log"));
  }
  std::string OrphanFile(const std::string& id, const std::string& name) {
    return room_.Get(IncidentDirectory(room_.state.incidents_dir, id) + name);
  }
  bool Said(const std::string& text) { return room_.errors.Has("[LibboxLogBuffer] " + text); }

  EvidenceRoom room_;
  KnownSessions known_;
  MoveContext context_;
};

TEST_F(Moves, BothLogsComeInCleanAndAreCounted) {
  Begin("s1");
  room_.Put(room_.state.session_log_path, "at 1.2.3.4\n");
  room_.Put(room_.state.last_crash_path, "old\n");
  const EvidenceFound found = Archive();
  EXPECT_EQ(Archived("session.log"), "at [ip]\n");
  EXPECT_EQ(Archived("legacy_last_crash.log"), "old\n");
  EXPECT_EQ(room_.Get(room_.state.session_log_path), "<absent>");
  EXPECT_EQ(found.session_log_bytes, 12);
  EXPECT_EQ(found.crash_output_scan, "header_only");
  EXPECT_FALSE(context_.unmoved);
  EXPECT_EQ(context_.errors, Texts{});
}

TEST_F(Moves, AnEarlierFileOfTheNameIsKeptAndTheFragmentIsNotCalledTheSessions) {
  Begin("s1");
  room_.Put(context_.incident_dir + "session.log", "earlier\n");
  for (const char* fragment : {"session.2.log", "session.3.log"}) {
    room_.Put(room_.state.session_log_path, std::string("for ") + fragment);
    EXPECT_EQ(Archive().session_log_bytes, 8);
    EXPECT_EQ(Archived(fragment), std::string("for ") + fragment);
    EXPECT_EQ(context_.errors.back(),
              std::string("archived session.log as ") + fragment +
                  ": this incident already held a session.log from an earlier import, so the "
                  "fragment is NOT known to belong to session s1");
  }
  EXPECT_EQ(Archived("session.log"), "earlier\n");

  for (int n = 4; n <= 99; ++n) {
    room_.Put(context_.incident_dir + "session." + std::to_string(n) + ".log", "earlier");
  }
  room_.Put(room_.state.session_log_path, "over the last name");
  static_cast<void>(Archive());
  EXPECT_EQ(Archived("session.99.log"), "over the last name");
  EXPECT_EQ(Archived("session.98.log"), "earlier");
}

TEST_F(Moves, AFileThatCannotBeCleanedOrRenamedStaysFlat) {
  Begin("s1");
  const std::string source = room_.state.session_log_path;
  room_.Put(source, "x\n");
  const auto move = [&] { return moveIntoIncident(context_, source, "session.log"); };
  EXPECT_FALSE(room_.WithFailing("Files.Open", 1, move));
  EXPECT_TRUE(context_.unmoved);
  EXPECT_EQ(context_.errors, Texts{"privacy migration failed; payload withheld"});

  Begin("s1");
  EXPECT_FALSE(room_.WithFailing("Files.Rename", 1, move));
  EXPECT_TRUE(context_.unmoved);
  const std::string said = "rename libbox_session.log -> session.log: " + EvidenceRoom::Injected();
  EXPECT_EQ(context_.errors, Texts{said});
  EXPECT_TRUE(Said(said));
  EXPECT_EQ(room_.Get(source), "x\n");
}

TEST_F(Moves, CrashOutputIsCountedByWhatItHolds) {
  struct Row {
    const char* text;
    const char* scan;
    bool has;
    std::int64_t bytes;
  };
  const Row rows[] = {
      {"crash-output armed s\n \r\n", "header_only", false, 0},
      {"crash-output armed s\npanic\n", "fatal", true, 27},
  };
  for (const Row& row : rows) {
    Begin("s1");
    room_.Put(Flat("crash-output.s1.log"), row.text);
    const EvidenceFound found = Archive({"crash-output.s1.log"});
    EXPECT_EQ(found.crash_output_scan, row.scan);
    EXPECT_EQ(found.has_crash_output, row.has);
    EXPECT_EQ(found.crash_output_bytes, row.bytes);
    EXPECT_FALSE(context_.unmoved);
  }
}

TEST_F(Moves, CrashOutputThatCannotBeReadIsTold) {
  Begin("s1");
  room_.Put(context_.incident_dir + "crash-output.s1.log", "panic\n");
  // The second opening is that of the scan.
  const EvidenceFound found = room_.WithFailing("Files.Open", 2, [&] { return Archive(); });
  EXPECT_EQ(found.crash_output_scan, "read_failed");
  EXPECT_FALSE(found.has_crash_output);
  EXPECT_EQ(context_.errors, Texts{"evidence_read_error: crash-output.s1.log is present but could "
                                   "not be read; this incident is withheld until it can be"});
}

TEST_F(Moves, WhatAnEarlierImportLeftRawIsCleanedOrHeldBack) {
  Begin("s1");
  room_.Put(context_.incident_dir + "session.2.log", "at 1.2.3.4");
  static_cast<void>(room_.WithFailing("Files.Rename", 1, [&] { return Archive(); }));
  EXPECT_TRUE(context_.unmoved);
  EXPECT_EQ(context_.errors, Texts{"archived privacy migration failed; payload withheld"});

  Begin("s1");
  static_cast<void>(Archive());
  EXPECT_FALSE(context_.unmoved);
  EXPECT_EQ(Archived("session.2.log"), "at [ip]");

  Begin("s1");
  static_cast<void>(room_.WithFailing("Files.List", 1, [&] { return Archive(); }));
  const std::string said = "scan of the incident directory failed: " + EvidenceRoom::Injected() +
                           " (crash-output evidence may be undercounted)";
  EXPECT_EQ(context_.errors, Texts{said});
  EXPECT_TRUE(Said(said));
}

TEST_F(Moves, CrashOutputIsNeverBlamedOnTheWrongSession) {
  Begin("s1");
  room_.Put(context_.incident_dir + "crash-output.other.log", "panic\n");
  EXPECT_FALSE(Archive().has_crash_output);
  EXPECT_EQ(context_.errors,
            Texts{"crash-output of session other archived with session s1 (not attributed)"});

  Begin("unknown");
  room_.Put(context_.incident_dir + "crash-output.a.log", "panic\n");
  EXPECT_TRUE(Archive().has_crash_output);

  room_.Put(context_.incident_dir + "crash-output.b.log", "panic\n");
  const EvidenceFound found = Archive();
  EXPECT_FALSE(found.has_crash_output);
  EXPECT_EQ(found.crash_output_ambiguous, "crash-output.a.log crash-output.b.log");
  EXPECT_EQ(context_.errors,
            Texts{"session unknown and 2 crash-output files present; none adopted: "
                  "crash-output.a.log crash-output.b.log"});
}

TEST_F(Moves, AnOrphanGetsItsOwnIncidentAndASecondOneJoinsIt) {
  Begin("b");
  const std::string id = std::string(test::kNowId) + "-a";
  room_.Put(Flat("crash-output.a.log"), std::string(kHeader) + "at 1.2.3.4\n");
  const EvidenceFound found = Archive({"crash-output.a.log"});
  EXPECT_FALSE(found.has_crash_output);
  EXPECT_FALSE(context_.unmoved);
  EXPECT_TRUE(context_.errors.empty());
  EXPECT_EQ(known_["a"], id);
  EXPECT_EQ(OrphanFile(id, "pending"), "<absent>");
  EXPECT_EQ(room_.Get(Flat("crash-output.a.log")), "<absent>");
  EXPECT_EQ(OrphanFile(id, "crash-output.a.log"), std::string(kHeader) + "at [ip]\n");
  const std::string head = R"({"schema":1,"incident_id":")" + id + R"(","session_id":"a",)" +
                           R"("session_id_source":"crash_output_filename",)" +
                           R"("build_id":"2.16.10+336","reason":"unexplained",)" +
                           R"("reason_source":"import","reimport_count":)";
  EXPECT_EQ(OrphanFile(id, "manifest.json"),
            head + R"(0,"marker_state":"none","app_started_at_utc":"","app_ended_at_utc":"",)" +
                R"("imported_at_utc":")" + test::kNow + R"(","import_trigger":"boot",)" +
                R"("session_log_bytes":0,"has_crash_output":true,"crash_output_scan":"fatal",)" +
                R"("crash_output_bytes":29,"import_errors":["crash output of a session with no )" +
                R"(surviving marker; imported on its own so it is not attributed to another )" +
                R"(session"]})");
  EXPECT_TRUE(Said("Archived orphan crash output of session a as incident " + id + " (fatal=yes)"));

  room_.clock.Advance(60'000);
  context_.import_trigger = "session_start";
  room_.Put(Flat("crash-output.a.log"), kHeader);
  EXPECT_TRUE(ArchiveOrphan("a"));
  const std::string again = OrphanFile(id, "manifest.json");
  EXPECT_TRUE(again.starts_with(head + "1,")) << again;
  EXPECT_EQ(jsonStringField(again, "imported_at_utc"), test::kNow);
  EXPECT_EQ(jsonStringField(again, "import_trigger"), "boot");
  EXPECT_EQ(jsonStringField(again, "crash_output_scan"), "header_only");
  EXPECT_EQ(ReadImportErrors(again).back(),
            "re-imported: the first classification ('unexplained') is KEPT; this pass only added "
            "crash-output evidence");
  EXPECT_EQ(known_.size(), 1u);
}

TEST_F(Moves, AnOrphanKeepsTheClassificationOfAnImportButNotOfAPlaceholder) {
  Begin("b");
  ManifestFields fields;
  fields.incident_id = "9-a";
  fields.session_id = "a";
  fields.session_id_source = "marker";
  fields.build_id = "old";
  fields.reason = "failed_start";
  fields.reimport_count = 4;
  fields.marker_state = "failed_start";
  fields.app_started_at_utc = "t1";
  fields.app_ended_at_utc = "t2";
  fields.imported_at_utc = "t3";
  fields.import_trigger = "session_start";
  fields.session_log_bytes = 77;
  fields.shutdown.close_error = "a } \"brace\"";
  const std::string earlier = writeIncidentManifest(fields);
  AddKnownSession(known_, "a", "9-a");
  AddKnownSession(known_, "a", "8-a");
  room_.Put(room_.Incident("9-a") + "manifest.json", earlier);
  room_.Put(Flat("crash-output.a.log"), "panic\n");
  ASSERT_TRUE(ArchiveOrphan("a"));

  fields.reimport_count = 5;
  fields.has_crash_output = true;
  fields.crash_output_scan = "fatal";
  fields.crash_output_bytes = 6;
  EXPECT_EQ(OrphanFile("9-a", "manifest.json"),
            writeOrphanManifest(fields, FindShutdownMember(earlier), true));
  EXPECT_NE(OrphanFile("9-a", "manifest.json").find(R"("close_error":"a } \"brace\""})"),
            std::string::npos);

  room_.Put(room_.Incident("9-a") + "manifest.json",
            writePlaceholderManifest("9-a", "a", "old", "t9", "session_start"));
  room_.Put(Flat("crash-output.a.log"), "panic\n");
  ASSERT_TRUE(ArchiveOrphan("a"));
  const std::string replaced = OrphanFile("9-a", "manifest.json");
  EXPECT_EQ(jsonStringField(replaced, "reason_source"), "import");
  EXPECT_EQ(jsonStringField(replaced, "build_id"), "2.16.10+336");
  EXPECT_EQ(jsonStringField(replaced, "imported_at_utc"), test::kNow);
  EXPECT_EQ(jsonIntField(replaced, "reimport_count"), 1);
}

TEST_F(Moves, AnOrphanThatFailsSaysWhereAndIsTriedAgain) {
  const std::string id = std::string(test::kNowId) + "-a";
  struct Row {
    const char* operation;
    std::size_t nth;
    std::string said;
    bool flat;
  };
  const Row rows[] = {
      {"Files.CreateDirectories", 1,
       "Could not create the incident directory for orphan session a: " + EvidenceRoom::Injected(),
       true},
      {"Files.Rename", 1,
       "Sentinel not persisted for orphan session a; its crash output stays flat", true},
      {"Files.Open", 2, "Privacy migration read failed", true},
      {"Files.Rename", 2,
       "Could not move crash-output.a.log to its own incident: " + EvidenceRoom::Injected(), true},
      {"Files.Rename", 3, "Manifest not written for orphan incident " + id, false},
      {"Files.Open", 5, "Manifest for orphan incident " + id + " did not verify", false},
  };
  for (const Row& row : rows) {
    std::filesystem::remove_all(EvidencePath(room_.state.incidents_dir));
    known_.clear();
    room_.errors.Clear();
    Begin("b");
    room_.Put(Flat("crash-output.a.log"), "panic\n");
    room_.WithFailing(row.operation, row.nth, [&] { return Archive({"crash-output.a.log"}); });
    EXPECT_TRUE(Said(row.said)) << row.said;
    EXPECT_TRUE(context_.unmoved);
    EXPECT_EQ(context_.errors,
              Texts{"crash output of session a could not be archived on its own; retrying on the "
                    "next start"});
    EXPECT_EQ(room_.Get(Flat("crash-output.a.log")) == "panic\n", row.flat) << row.said;
    EXPECT_TRUE(known_.empty());
  }
}

TEST_F(Moves, ASentinelThatStaysFailsNoOrphan) {
  Begin("b");
  room_.Put(Flat("crash-output.a.log"), "panic\n");
  EXPECT_TRUE(room_.WithFailing("Files.RemoveFile", 1, [&] { return ArchiveOrphan("a"); }));
  EXPECT_TRUE(Said("Could not clear the sentinel of orphan incident " + known_["a"] + ": " +
                   EvidenceRoom::Injected()));
  EXPECT_EQ(OrphanFile(known_["a"], "pending"), R"({"schema":1,"incident_id":")" + known_["a"] +
                                                    R"(","session_id":"a","created_at_utc":")" +
                                                    test::kNow + R"(","import_trigger":"boot"})");
}

}  // namespace
}  // namespace korvane
