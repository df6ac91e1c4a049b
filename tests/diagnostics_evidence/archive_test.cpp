// The archive as the interface sees it: rows, acknowledgement, retention and the journal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string Manifest(const std::string& id, const std::string& session,
                     const std::string& reason = "unexplained", int generation = 0) {
  return R"({"schema":1,"incident_id":")" + id + R"(","session_id":")" + session +
         R"(","reason":")" + reason + R"(","reason_source":"import","reimport_count":)" +
         std::to_string(generation) + R"(,"import_errors":["a \"quoted\" note","another"]})";
}

void PutIncident(EvidenceWorld& world, const std::string& id, const std::string& reason,
                 std::size_t bytes = 0) {
  const std::string session = id.substr(id.find('-') + 1);
  world.Put("incidents/" + id + "/manifest.json", Manifest(id, session, reason));
  world.Put("incidents/" + id + "/session.txt", std::string(bytes, '.'));
}

TEST(Listing, ShowsTheNewestFirstAndHoldsBackTheUnfinished) {
  EvidenceWorld world;
  PutIncident(world, "20260101T000000Z-a", "clean");
  PutIncident(world, "20260103T000000Z-b", "unexplained");
  PutIncident(world, "20260103T000000Z-b-2", "");
  PutIncident(world, "20260102T000000Z-c", "clean");
  world.Put("incidents/20260102T000000Z-c/pending", "{}");
  world.Put("incidents/20260104T000000Z-d/session.log", "no manifest\n");
  std::string failure = "from before";
  const auto rows = world.Start().getPendingIncidents(&failure);
  EXPECT_EQ(failure, "");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].id, "20260103T000000Z-b-2");
  EXPECT_EQ(rows[0].reason, "unexplained");
  EXPECT_EQ(rows[1].id, "20260103T000000Z-b");
  EXPECT_EQ(rows[2].reason, "clean");
  EXPECT_EQ(rows[2].crash_output_scan, "none");
  EXPECT_EQ(rows[2].import_state, "complete");
  EXPECT_THAT(rows[2].import_errors, ElementsAre("a \"quoted\" note", "another"));
  EXPECT_TRUE(
      world.errors.Has("[LibboxLogBuffer] Withholding incident 20260102T000000Z-c: its "
                       "import has not finished"));
  EXPECT_TRUE(world.errors.Has(
      "[LibboxLogBuffer] Withholding incident 20260104T000000Z-d: no manifest yet"));
}

TEST(Listing, HoldsBackWhatItCouldNotLookThrough) {
  EvidenceWorld world;
  PutIncident(world, "20260101T000000Z-a", "clean");
  world.Start();
  // The first listing is of the archive, the second of the incident.
  world.Suffer(FailOnce(2, [](const Operation& o) { return o.name == "Files.List"; }),
               [](LibboxLogBuffer& evidence) {
                 EXPECT_THAT(evidence.getPendingIncidents(nullptr), IsEmpty());
               });
  EXPECT_THAT(world.evidence().getPendingIncidents(nullptr), SizeIs(1));
}

TEST(Listing, ReadsCrashOutputOfItsOwnSessionUpToTheFirstFatalOne) {
  EvidenceWorld world;
  const std::string folder = "incidents/20260101T000000Z-a/";
  PutIncident(world, "20260101T000000Z-a", "unexplained");
  world.Put(folder + "crash-output.a.log",
            "crash-output armed 2026\n\nfatal: dial 10.0.0.1:443 refused\n");
  world.Put(folder + "crash-output.b.log", "of another session\n");
  auto rows = world.Start().getPendingIncidents(nullptr);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].crash_output_scan, "fatal");
  EXPECT_TRUE(rows[0].has_crash_output);
  EXPECT_EQ(rows[0].crash_output_excerpt, "fatal: dial [ip] refused\n");
  EXPECT_THAT(rows[0].import_errors, SizeIs(2)) << "nothing behind the fatal one is looked at";

  PutIncident(world, "20260102T000000Z-unknown", "unexplained");
  world.Put("incidents/20260102T000000Z-unknown/crash-output.b.log", "panic\n");
  rows = world.evidence().getPendingIncidents(nullptr);
  EXPECT_EQ(rows[0].crash_output_excerpt, "panic\n") << "the only one of an unknown session is its";
  world.Remove("incidents/20260102T000000Z-unknown/manifest.json");

  world.Remove(folder + "crash-output.a.log");
  rows = world.evidence().getPendingIncidents(nullptr);
  EXPECT_EQ(rows[0].crash_output_scan, "none");
  EXPECT_THAT(rows[0].import_errors,
              ElementsAre("crash-output of session b present but not attributed to this incident",
                          "a \"quoted\" note", "another"));
}

TEST(Acknowledgement, CountsForOneGeneration) {
  EvidenceWorld world;
  const std::string id = "20260101T000000Z-a";
  PutIncident(world, id, "unexplained");
  LibboxLogBuffer& evidence = world.Start();
  EXPECT_FALSE(evidence.acknowledgeIncident(id, 1));
  EXPECT_TRUE(evidence.acknowledgeIncident(id, 0));
  EXPECT_EQ(world.Get("incidents/" + id + "/acknowledged"),
            R"({"acknowledged_at_utc":"2024-01-02T03:04:05Z","reimport_count":0})");
  EXPECT_TRUE(evidence.getPendingIncidents(nullptr)[0].acknowledged);
  world.Put("incidents/" + id + "/manifest.json", Manifest(id, "a", "unexplained", 1));
  const auto row = evidence.getPendingIncidents(nullptr)[0];
  EXPECT_FALSE(row.acknowledged);
  EXPECT_THAT(row.import_errors,
              ElementsAre("acknowledgement was for import generation 0; this incident is now "
                          "generation 1",
                          "a \"quoted\" note", "another"));
  for (const char* name : {"/acknowledged", "/manifest.json"}) {
    world.Put("incidents/" + id + name, "{}");
    PutIncident(world, id, "clean");
    EXPECT_TRUE(evidence.getPendingIncidents(nullptr)[0].acknowledged)
        << "what tells no generation is of the first";
  }
  world.Put("incidents/" + id + "/manifest.json", "{}");
  EXPECT_TRUE(evidence.acknowledgeIncident(id, 0));
}

TEST(Acknowledgement, IsRefusedForWhatNobodyCouldSee) {
  EvidenceWorld world;
  PutIncident(world, "20260101T000000Z-a", "clean");
  world.Put("incidents/20260101T000000Z-a/pending", "{}");
  world.Put("outside/manifest.json", "{}");
  LibboxLogBuffer& evidence = world.Start();
  const auto before = world.Snapshot();
  for (const char* id :
       {"", ".", "..", "a/../b", "a\\b", "C:", "../outside", "nobody", "20260101T000000Z-a"}) {
    EXPECT_FALSE(evidence.acknowledgeIncident(id, 0)) << id;
  }
  EXPECT_EQ(world.Snapshot(), before);
  EXPECT_TRUE(world.errors.Has("[LibboxLogBuffer] Rejecting malformed incident id"));
  EXPECT_TRUE(world.errors.Has("[LibboxLogBuffer] Cannot acknowledge unknown incident nobody"));
  EXPECT_TRUE(
      world.errors.Has("[LibboxLogBuffer] Refusing to acknowledge incident "
                       "20260101T000000Z-a: its import has not finished"));
}

// The journal's lines without their times, and with SIZE for each size.
std::vector<std::string> JournalOf(EvidenceWorld& world) {
  std::vector<std::string> lines;
  for (std::string line : world.evidence().evictedIncidents(50)) {
    EXPECT_TRUE(line.starts_with("2024-01-02T03:04:05Z ")) << line;
    line.erase(0, 21);
    const auto size = line.find("bytes=") + 6;
    const auto end = line.find_first_not_of("0123456789", size);
    lines.push_back(line.replace(size, std::min(end, line.size()) - size, "SIZE"));
  }
  return lines;
}

TEST(Retention, KeepsTheNewestAndTheEvidenceOfProblems) {
  constexpr std::size_t kMiB = 1'048'576;
  struct Incident {
    const char* id;
    const char* reason = "unexplained";
    std::size_t bytes = 5;
  };
  struct Row {
    const char* what;
    std::vector<Incident> incidents;  // the import adds 20240102T030405Z-new
    std::vector<std::string> journal;
  };
  const Row rows[] = {
      {"seven days old to the second", {{"20231226T030405Z-a"}}, {}},
      {"a second older, but one of two",
       {{"20231226T030404Z-a"}},
       {"evicted 20231226T030404Z-a reason=unexplained bytes=SIZE cause=age"}},
      {"three young ones", {{"20240101T000000Z-a"}, {"20240101T000001Z-b", "clean"}}, {}},
      {"four: the clean one goes though it is newer",
       {{"20240101T000000Z-a"}, {"20240101T000001Z-b"}, {"20240101T000002Z-c", "clean"}},
       {"evicted 20240101T000002Z-c reason=clean bytes=SIZE cause=count"}},
      {"too large",
       {{"20240101T000000Z-a", "failed_start", 4 * kMiB}, {"20240101T000001Z-b", "", 8 * kMiB}},
       {"evicted 20240101T000000Z-a reason=failed_start bytes=SIZE cause=size"}},
      {"the newest by its name is too large alone",
       {{"strange-a", "unexplained", 11 * kMiB}},
       {"evicted 20240102T030405Z-new reason=unexplained bytes=SIZE cause=size"}},
      {"no time in the name, so not by age", {{"1-a"}, {"2-b"}}, {}},
      {"no time in the name, but by count",
       {{"1-a", ""}, {"2-b"}, {"20240101T000002Z-c"}},
       {"evicted 1-a reason=unknown bytes=SIZE cause=count"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EvidenceWorld world;
    for (const Incident& incident : row.incidents) {
      PutIncident(world, incident.id, incident.reason, incident.bytes);
    }
    world.Put("libbox_session_active", MarkerText("new"));
    EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
    EXPECT_EQ(JournalOf(world), row.journal);
    EXPECT_EQ(world.evidence().evictedCount(), static_cast<std::int32_t>(row.journal.size()));
    EXPECT_EQ(world.Incidents().size(), row.incidents.size() + 1 - row.journal.size());
  }
}

TEST(Retention, FillsItsBytesToTheLast) {
  // How much lies in the archive when one incident holds so many bytes more.
  const auto filled = [](std::size_t bytes) {
    EvidenceWorld world;
    PutIncident(world, "20240101T000000Z-a", "unexplained", bytes);
    world.Put("libbox_session_active", MarkerText("new"));
    EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
    std::int64_t total = 0;
    for (const IncidentRow& row : world.evidence().getPendingIncidents(nullptr)) {
      total += row.total_bytes;
    }
    return total;
  };
  const std::int64_t limit = 10'485'760;
  const auto room = static_cast<std::size_t>(limit - filled(0));
  EXPECT_EQ(filled(room), limit);
  EXPECT_LT(filled(room + 1), 10'000) << "a byte too much costs the older incident";
}

TEST(Retention, NeverEvictsAnUnfinishedImportAndSaysWhenThatCostsTheBudget) {
  EvidenceWorld world;
  for (const char* id :
       {"20240101T000000Z-s", "20240101T000001Z-s", "20240101T000002Z-s", "20240101T000003Z-s"}) {
    PutIncident(world, id, "unexplained");
    world.Put(std::string("incidents/") + id + "/pending", R"({"session_id":"s"})");
  }
  PutIncident(world, "20240102T000000Z-newest", "clean");
  world.Put("libbox_session_active", MarkerText("s"));  // resumes the last of the four
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  EXPECT_THAT(JournalOf(world),
              ElementsAre("evicted 20240101T000003Z-s reason=unexplained bytes=SIZE cause=count",
                          "skipped_pending count=3 live=4 bytes=SIZE"));
  EXPECT_THAT(world.Pending(), SizeIs(3));
}

TEST(Retention, CountsItsEvictionsOnWhateverTheCounterHolds) {
  const std::pair<const char*, std::int32_t> rows[] = {
      {"41\nmore", 42},
      {"41x\n", 1},
      {"-4\n", 1},
      {"9223372036854775808\n", 1},
      {"9223372036854775807\n", 0},
  };
  for (const auto& [counter, counted] : rows) {
    EvidenceWorld world;
    PutIncident(world, "20230101T000000Z-a", "unexplained");
    world.Put("incidents/retention_eviction_total", counter);
    world.Put("libbox_session_active", MarkerText("new"));
    EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
    EXPECT_EQ(world.evidence().evictedCount(), counted) << counter;
  }
}

TEST(Journal, IsCutToItsLastLinesAndShowsAtMostTheAskedOnes) {
  EvidenceWorld world;
  std::string journal;
  for (int line = 0; line < 1000; ++line) {
    journal += "2024-01-01T00:00:00Z line " + std::to_string(line) + std::string(60, '.') + "\n";
  }
  world.Put("incidents/retention.log", journal);
  PutIncident(world, "20230101T000000Z-a", "clean");
  world.Put("libbox_session_active", MarkerText("new"));
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  const std::string cut = world.Get("incidents/retention.log");
  EXPECT_EQ(std::count(cut.begin(), cut.end(), '\n'), 200);
  EXPECT_THAT(world.evidence().evictedIncidents(50), SizeIs(50));
  EXPECT_THAT(world.evidence().evictedIncidents(1),
              ElementsAre(HasSubstr(" evicted 20230101T000000Z-a reason=clean bytes=")));
  const std::pair<const char*, std::vector<std::string>> faults[] = {
      {"", {}}, {"torn", {"JOURNAL INCOMPLETE: torn"}}};
  for (const auto& [fault, shown] : faults) {
    world.Put("incidents/journal_write_failed", fault);
    EXPECT_EQ(world.evidence().evictedIncidents(0), shown);
  }
}

TEST(EvidenceTime, IsAWholeTimeOfTheCalendar) {
  const std::string time = "20240229T235960Z";
  EXPECT_EQ(ParseCompactUtc(time), 1'709'251'200);
  for (std::size_t at = 0; at < time.size(); ++at) {
    EXPECT_FALSE(ParseCompactUtc(time.substr(0, at)));
    for (const char wrong : {'-', 'x'}) {
      std::string text = time;
      text[at] = wrong;
      EXPECT_FALSE(ParseCompactUtc(text)) << text;
    }
  }
  for (const char* no_time :
       {"20230229T000000Z", "20240101T240000Z", "20240101T006000Z", "20240101T000061Z"}) {
    EXPECT_FALSE(ParseCompactUtc(no_time)) << no_time;
  }
}

}  // namespace
}  // namespace korvane::test
