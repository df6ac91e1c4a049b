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

TEST(Manifest, AForeignRecordShowsItsIntentAndTimesButNoState) {
  ManifestFields fields;
  fields.session_id = "s1";
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

TEST(Manifest, NotesComeBackWhole) {
  ManifestFields fields;
  fields.import_errors = {R"(C:\a "b" ]",)", "two\nlines", "a\tb\r", "", R"(\)"};
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
  ManifestFields fields;
  fields.incident_id = "i1";
  fields.import_errors = {std::string(20'000, 'x')};
  room.Put(directory + "manifest.json", writeIncidentManifest(fields));
  EXPECT_TRUE(ManifestVerifies(directory, "i1"));
  EXPECT_FALSE(ManifestVerifies(directory, "another"));
}

TEST(JsonText, NumbersAndCutTextsAreReadAsFarAsTheyGo) {
  const std::pair<const char*, std::optional<std::int32_t>> rows[] = {
      {R"({"n":7})", 7},
      {"{\"n\": \t\r-7}", -7},
      {R"({"n":+7})", 7},
      {R"({"n":2147483647})", 2147483647},
      {R"({"n":2147483648})", std::nullopt},
      {R"({"n":!})", std::nullopt},
      {"{\"n\":\x01}", std::nullopt},
      {R"({"n":)", std::nullopt},
  };
  EvidenceRoom room;
  for (const auto& [text, number] : rows) {
    EXPECT_EQ(jsonIntField(text, "n"), number) << text;
  }
  EXPECT_EQ(JsonUnescape(R"(cut\)"), R"(cut\)");
}

}  // namespace
}  // namespace korvane
