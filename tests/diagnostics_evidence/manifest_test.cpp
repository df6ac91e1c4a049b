#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_room.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"

namespace korvane {
namespace {

using test::EvidenceRoom;
using Texts = std::vector<std::string>;

ManifestFields Fields() {
  ManifestFields fields;
  fields.incident_id = "20240102T030405Z-s1";
  fields.session_id = "s1";
  fields.session_id_source = "marker";
  fields.build_id = "b";
  fields.reason = "clean";
  fields.marker_state = "clean_shutdown";
  fields.app_started_at_utc = "t1";
  fields.app_ended_at_utc = "t2";
  fields.imported_at_utc = "t3";
  fields.import_trigger = "boot";
  fields.session_log_bytes = 5'000'000'000;
  fields.crash_output_bytes = 7;
  return fields;
}

TEST(Manifest, AnImportFollowsTheTemplateToTheByte) {
  ManifestFields fields = Fields();
  fields.reimport_count = 2;
  fields.reimport_observed_reason = "unexplained";
  fields.crash_output_ambiguous = "a b";
  fields.has_crash_output = true;
  fields.crash_output_scan = "fatal";
  fields.shutdown.session_id = "s1";
  fields.shutdown.process_exit_session = "s1";
  fields.shutdown.process_exit_reason = "tray_quit";
  fields.shutdown.process_exit_state = "requested";
  fields.shutdown.reason = "user_disconnect";
  fields.shutdown.later_intent = "updater";
  fields.shutdown.state = "failed";
  fields.shutdown.requested_at_utc = "t4";
  fields.shutdown.result_at_utc = "t5";
  fields.shutdown.close_code = -3;
  fields.shutdown.close_error = "dial 1.2.3.4:5 \"x\"";
  fields.import_errors = {"first \"quoted\"", "second\\"};
  EXPECT_EQ(
      writeIncidentManifest(fields),
      R"({"schema":1,"incident_id":"20240102T030405Z-s1","session_id":"s1",)"
      R"("session_id_source":"marker","build_id":"b","reason":"clean","reason_source":"import",)"
      R"("reimport_count":2,"reimport_observed_reason":"unexplained",)"
      R"("crash_output_ambiguous":"a b","marker_state":"clean_shutdown",)"
      R"("app_started_at_utc":"t1","app_ended_at_utc":"t2","imported_at_utc":"t3",)"
      R"("import_trigger":"boot","session_log_bytes":5000000000,"has_crash_output":true,)"
      R"("crash_output_scan":"fatal","crash_output_bytes":7,"shutdown":{)"
      R"("process_exit_reason":"tray_quit","process_exit_state":"requested",)"
      R"("intent":"user_disconnect","later_intent":"updater","state":"failed",)"
      R"("requested_at_utc":"t4","result_at_utc":"t5","close_code":-3,)"
      R"("close_error":"dial [ip] \"x\""},"import_errors":["first \"quoted\"","second\\"]})");
}

TEST(Manifest, AForeignRecordShowsItsIntentAndTimesButNoState) {
  ManifestFields fields = Fields();
  fields.shutdown.session_id = "other";
  fields.shutdown.process_exit_session = "other";
  fields.shutdown.process_exit_reason = "updater";
  fields.shutdown.process_exit_state = "requested";
  fields.shutdown.reason = "node_switch";
  fields.shutdown.state = "completed";
  fields.shutdown.requested_at_utc = "t4";
  EXPECT_EQ(FindShutdownMember(writeIncidentManifest(fields)),
            R"("shutdown":{"process_exit_reason":"","process_exit_state":"",)"
            R"("intent":"node_switch","later_intent":"","state":"","requested_at_utc":"t4",)"
            R"("result_at_utc":"","close_error":""})");

  fields.shutdown.session_id.clear();
  fields.shutdown.process_exit_session.clear();
  const std::string owned_by_nobody = writeIncidentManifest(fields);
  EXPECT_EQ(jsonStringField(owned_by_nobody, "state"), "completed");
  EXPECT_EQ(jsonStringField(owned_by_nobody, "process_exit_reason"), "updater");
}

TEST(Manifest, TheShortFormsFollowTheirTemplatesToTheByte) {
  EXPECT_EQ(writePlaceholderManifest("i\"1", "s1", "b", "t3", "boot"),
            R"({"schema":1,"incident_id":"i\"1","session_id":"s1","build_id":"b",)"
            R"("reason":"unexplained","reason_source":"recovered_placeholder",)"
            R"("marker_state":"none","imported_at_utc":"t3","import_trigger":"boot",)"
            R"("import_errors":["manifest recovered after an interrupted import"]})");
  EXPECT_EQ(writePendingSentinel("i1", "s1", "t", "session_start"),
            R"({"schema":1,"incident_id":"i1","session_id":"s1","created_at_utc":"t",)"
            R"("import_trigger":"session_start"})");
  EXPECT_EQ(writeAcknowledgedSentinel("t", 3), R"({"acknowledged_at_utc":"t","reimport_count":3})");
}

TEST(Manifest, AnOrphanFollowsItsTemplateToTheByte) {
  const std::string head =
      R"({"schema":1,"incident_id":"20240102T030405Z-s1","session_id":"s1",)"
      R"("session_id_source":"marker","build_id":"b","reason":"clean","reason_source":"import",)"
      R"("reimport_count":0,"marker_state":"clean_shutdown","app_started_at_utc":"t1",)"
      R"("app_ended_at_utc":"t2","imported_at_utc":"t3","import_trigger":"boot",)"
      R"("session_log_bytes":5000000000,"has_crash_output":false,)"
      R"("crash_output_scan":"header_only","crash_output_bytes":7)";
  const std::string errors =
      R"(,"import_errors":["crash output of a session with no surviving marker; imported on its )"
      R"(own so it is not attributed to another session")";
  EXPECT_EQ(writeOrphanManifest(Fields(), "", false), head + errors + "]}");
  EXPECT_EQ(writeOrphanManifest(Fields(), R"("shutdown":{"state":"x"})", true),
            head + R"(,"shutdown":{"state":"x"})" + errors +
                R"(,"re-imported: the first classification ('clean') is KEPT; this pass only )" +
                R"(added crash-output evidence"]})");
}

TEST(Manifest, NotesComeBackWhole) {
  ManifestFields fields = Fields();
  fields.import_errors = {R"(C:\a "b" ]",)", "two\nlines", "", R"(\)"};
  EXPECT_EQ(ReadImportErrors(writeIncidentManifest(fields)), fields.import_errors);

  const std::pair<const char*, Texts> malformed[] = {
      {"", {}},
      {R"({"import_errors":)", {}},
      {R"("import_errors":["a)", {}},
      {R"("import_errors":["a","b)", {"a"}},
      {R"("import_errors":["a"7,"b"])", {"a"}},
      {R"("import_errors" : [ "a" , "b" ] "c")", {"a", "b"}},
  };
  for (const auto& [text, kept] : malformed) {
    EXPECT_EQ(ReadImportErrors(text), kept) << text;
  }
}

TEST(Manifest, TheShutdownObjectIsFoundWhole) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"a":1,"shutdown":{"e":"}{\"}","n":{"x":{}}},"b":{}})",
       R"("shutdown":{"e":"}{\"}","n":{"x":{}}})"},
      {R"({"session_id":"shutdown","shutdown" : {} })", R"("shutdown" : {})"},
      {R"({"shutdown":{"close_error":"cut)", ""},
      {R"({"shutdown":{"a":1,)", ""},
      {R"({"shutdown":"text"})", ""},
      {R"({"shutdown")", ""},
      {"", ""},
  };
  for (const auto& [text, member] : rows) {
    EXPECT_EQ(FindShutdownMember(text), member) << text;
  }
}

TEST(Manifest, IdsOfOneSecondDifferUntilTheirNumbersRunOut) {
  EvidenceRoom room;
  const std::string first = std::string(test::kNowId) + "-s1";
  std::vector<std::string> ids;
  for (int i = 0; i < 100; ++i) {
    ids.push_back(NewIncidentId(room.state.incidents_dir, "s1"));
    room.Incident(ids.back());
  }
  EXPECT_EQ(ids[0], first);
  EXPECT_EQ(ids[1], first + "-2");
  EXPECT_EQ(ids[98], first + "-99");
  EXPECT_EQ(ids[99], first + "-99");
}

TEST(Manifest, NoSessionLeadsOutOfTheArchive) {
  EvidenceRoom room;
  const std::pair<const char*, const char*> rows[] = {
      {"<no-session>", "_no-session_"},
      {"../../x", ".._.._x"},
      {"..", "_"},
      {"a:b\"c\\d|e?f*g\x01h", "a_b_c_d_e_f_g_h"},
      {"caf\xC3\xA9 b.c", "caf\xC3\xA9 b.c"},
  };
  for (const auto& [session, name] : rows) {
    EXPECT_EQ(NewIncidentId(room.state.incidents_dir, session),
              std::string(test::kNowId) + "-" + name);
  }
}

TEST(Manifest, OlderAndDamagedFormsAreRead) {
  struct Row {
    std::string text;
    std::string reason;
    bool keeps_reason;
    std::int32_t next;
  };
  const Row rows[] = {
      {writeIncidentManifest(Fields()), "clean", true, 1},
      {writePlaceholderManifest("i", "s", "b", "t", "boot"), "unexplained", false, 1},
      {R"({"reason":"clean","reimport_count":4})", "clean", true, 5},
      {R"({"reason":"","reimport_count":2147483647})", "", false, 2147483647},
      {R"({"reimport_count":99999999999})", "", false, 1},
      {"\xFF\0garbage", "", false, 1},
      {"", "", false, 1},
  };
  EvidenceRoom room;
  const std::string directory = room.Incident("i1");
  EXPECT_FALSE(ReadManifest(directory).has_value());
  for (const Row& row : rows) {
    room.Put(directory + "manifest.json", row.text);
    const auto manifest = ReadManifest(directory);
    ASSERT_TRUE(manifest.has_value()) << row.text;
    EXPECT_EQ(manifest->reason, row.reason) << row.text;
    EXPECT_EQ(manifest->KeepsReason(), row.keeps_reason) << row.text;
    EXPECT_EQ(manifest->NextReimportCount(), row.next) << row.text;
  }
}

TEST(Manifest, VerificationNamesTheIncidentEvenWhenTheFileIsLong) {
  EvidenceRoom room;
  const std::string directory = room.Incident("i1");
  ManifestFields fields = Fields();
  fields.import_errors = {std::string(20'000, 'x')};
  room.Put(directory + "manifest.json", writeIncidentManifest(fields));
  EXPECT_TRUE(ManifestVerifies(directory, fields.incident_id));
  EXPECT_FALSE(ManifestVerifies(directory, "another"));
  EXPECT_FALSE(room.WithFailing("Files.Open", 1,
                                [&] { return ManifestVerifies(directory, fields.incident_id); }));
}

}  // namespace
}  // namespace korvane
