// The life of a session on disk: the preference, the markers, the record and the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "diagnostics_evidence/evidence_world.h"
#include "diagnostics_evidence/json_text.h"

namespace korvane::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kActive[] = "libbox_session_active";
constexpr char kClean[] = "libbox_clean_shutdown";
constexpr char kFailedStart[] = "libbox_failed_start";
constexpr char kRecord[] = "libbox_shutdown_record.json";
constexpr char kLog[] = "libbox_session.log";
constexpr char kNow[] = "2024-01-02T03:04:05Z";

void LeaveEverything(EvidenceWorld& world) {
  for (const char* name : {kLog, "libbox_last_crash.log", kActive, kClean, kFailedStart, kRecord,
                           "libbox_session.log.tmp", "crash-output.s1.log", "crash-output.s2.log",
                           "incidents/20260101T000000Z-s1/manifest.json"}) {
    world.Put(name, "left");
  }
  world.Put("os_shutdown_marker", "1");
}

TEST(Preference, IsOffUnlessTheRegistrySaysOneAndNothingRevokesIt) {
  struct Row {
    const char* what;
    std::optional<std::uint32_t> value;
    const char* revocation;
    bool captures;
  };
  const Row rows[] = {
      {"no value", std::nullopt, nullptr, false},
      {"on", 1U, nullptr, true},
      {"off", 0U, nullptr, false},
      {"another number", 2U, nullptr, false},
      {"revoked", 1U, "windows_diagnostics_revoked", false},
      {"half revoked", 1U, "windows_diagnostics_revoked.tmp", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EvidenceWorld world(/*captures=*/false);
    LeaveEverything(world);
    if (row.value) {
      world.registry.values[L"Software\\Korvane\\WindowsDiagnosticsEnabled"] = *row.value;
    }
    if (row.revocation != nullptr) {
      world.Put(row.revocation, "revoked\n");
    }
    const auto before = world.Snapshot();
    LibboxLogBuffer& evidence = world.Start();
    EXPECT_EQ(evidence.getWindowsDiagnosticsEnabled(), row.captures);
    EXPECT_EQ(evidence.getWindowsDiagnosticsFailure(), "");
    if (row.captures) {
      EXPECT_EQ(world.Snapshot(), before);
    } else {
      auto left = world.Snapshot();
      EXPECT_EQ(left.erase("os_shutdown_marker"), 1U);
      EXPECT_EQ(left.size(), row.revocation != nullptr ? 1U : 0U);
    }
  }
}

TEST(Preference, TellsWhyItStaysOff) {
  struct Row {
    const char* operations;
    bool enable;
    CountingPlan (*plan)(std::size_t at, OperationFilter counted);
    std::size_t at;
    const char* failure;
  };
  const Row rows[] = {
      {"Files.Rename", true, FailOnce, 1, "Cannot stage Windows diagnostics preference"},
      {"Registry.WriteDword", true, FailOnce, 1, "Cannot save Windows diagnostics preference"},
      {"Files.CreateDirectories", true, FailOnce, 1, "Cannot create Windows diagnostics directory"},
      {"Files.RemoveFile", true, FailOnce, 1, "Cannot clear Windows diagnostics revocation"},
      {"Files.RemoveFile", true, FailOnce, 2, "Cannot clear Windows diagnostics revocation"},
      {"Registry.WriteDword", false, FailOnce, 1, "Cannot save Windows diagnostics preference"},
      {"Files.Rename", false, FailOnce, 1, "Cannot save Windows diagnostics preference"},
      {"Files.RemoveFile", false, FailFrom, 1,
       "Diagnostics are off, but retained evidence could not be cleared"},
      {"Files.Rename, Registry.WriteDword", false, FailFrom, 1,
       "Cannot persist diagnostics revocation: capture is off only for this process; retry before "
       "restarting"},
  };
  for (const Row& row : rows) {
    EvidenceWorld world(/*captures=*/!row.enable);
    LeaveEverything(world);
    world.Start();
    const auto failing = [&](const Operation& o) {
      return std::string_view(row.operations).find(o.name) != std::string_view::npos;
    };
    world.Suffer(row.plan(row.at, failing), [&](LibboxLogBuffer& evidence) {
      std::string failure;
      EXPECT_FALSE(evidence.setWindowsDiagnosticsEnabled(row.enable, &failure));
      const bool says_off = std::string_view(row.failure).find("off") != std::string_view::npos;
      EXPECT_EQ(failure, row.failure + std::string(says_off ? "" : "; capture remains off"));
      EXPECT_EQ(evidence.getWindowsDiagnosticsFailure(), failure);
      EXPECT_FALSE(evidence.getWindowsDiagnosticsEnabled());
    });
  }
}

// One step to a session's end: an intent, "no " and the intent that is withdrawn, a close, an end.
void Take(LibboxLogBuffer& evidence, const std::string& step) {
  if (step.starts_with("no ")) {
    evidence.clearShutdownIntent(step.substr(3));
  } else if (step == "close") {
    evidence.recordCloseResult(evidence.currentSessionId(), true, 0, "");
  } else if (step == "failed close") {
    evidence.recordCloseResult(evidence.currentSessionId(), false, -3, "stuck");
  } else if (step == "failed close of another") {
    evidence.recordCloseResult("another", false, 9, "late");
  } else if (step == "close of nobody") {
    evidence.recordCloseResult("", true, 0, "");
  } else if (step == "clean end") {
    evidence.markCleanShutdown();
  } else if (step == "failed start") {
    evidence.markFailedStart();
  } else {
    evidence.recordShutdownIntent(step);
  }
}

TEST(Session, LeavesTheMarkersOfItsEnd) {
  struct Row {
    std::vector<const char*> steps;
    std::vector<std::string> left;
    bool begun = true;
  };
  const Row rows[] = {
      {{}, {kActive}},
      {{"user_disconnect", "close", "clean end"}, {kClean, kRecord}},
      {{"user_disconnect", "failed close", "clean end"}, {kRecord}},
      {{"failed close of another", "clean end"}, {kClean, kRecord}},
      {{"failed_start", "failed start"}, {kFailedStart, kRecord}},
      {{"clean end"}, {kClean}, false},
      {{"failed close", "clean end"}, {kRecord}, false},
  };
  for (const Row& row : rows) {
    EvidenceWorld world;
    LibboxLogBuffer& evidence = world.Start();
    if (row.begun) {
      evidence.beginSession();
    }
    const std::string session = row.begun ? evidence.currentSessionId() : "unknown";
    for (const char* step : row.steps) {
      Take(evidence, step);
    }
    std::vector<std::string> left;
    for (const auto& [name, bytes] : world.Snapshot()) {
      left.push_back(name);
      EXPECT_TRUE(name == kRecord || bytes == MarkerText(session, kNow)) << bytes;
    }
    EXPECT_EQ(left, row.left);
  }
}

TEST(Session, LiesWhereTheUsersSettingsAreOrHere) {
  EvidenceWorld world;
  EXPECT_TRUE(world.evidence().getLibboxLogPath().ends_with(kLog));
  for (const auto& environment : {std::map<std::string, std::string>{}, {{"APPDATA", ""}}}) {
    world.environment() = environment;
    const std::string base = world.Start().baseDirectory();
    EXPECT_EQ(base.substr(0, 1) + base.substr(2, 7), ".Korvane");
  }
}

TEST(Session, OfACaptureThatIsOffLeavesNothing) {
  EvidenceWorld world(/*captures=*/false);
  LibboxLogBuffer& evidence = world.evidence();
  evidence.beginSession();
  evidence.recordBreadcrumb("a word", false);
  evidence.recordShutdownIntent("tray_quit");
  EXPECT_TRUE(evidence.clearShutdownIntent("tray_quit"));
  evidence.recordCloseResult("s", true, 0, "");
  evidence.markCleanShutdown();
  evidence.markFailedStart();
  EXPECT_FALSE(evidence.importPendingIncidents(nullptr));
  EXPECT_THAT(evidence.getPendingIncidents(nullptr), IsEmpty());
  EXPECT_FALSE(evidence.acknowledgeIncident("x", 0));
  EXPECT_THAT(evidence.evictedIncidents(50), IsEmpty());
  EXPECT_EQ(evidence.evictedCount(), 0);
  EXPECT_EQ(evidence.getLibboxLogPath(), "");
  EXPECT_EQ(evidence.currentSessionId(), "");
  EXPECT_THAT(world.Snapshot(), IsEmpty());
  evidence.writeOsShutdownMarker();
  EXPECT_THAT(world.Snapshot(), ElementsAre(Pair("os_shutdown_marker", "1704164645000")));
  evidence.clearOsShutdownMarker();
  EXPECT_THAT(world.Snapshot(), IsEmpty());
}

// The text with "OWN" for the session's id.
std::string Owned(std::string text, const std::string& session) {
  const std::size_t at = session.empty() ? text.npos : text.find(session);
  return at == text.npos ? text : text.replace(at, session.size(), "OWN");
}

// What the record says: of the close, of the process's exit, and the later intent.
std::string Told(EvidenceWorld& world) {
  std::string told;
  for (const char* key : {"session_id", "reason", "state", "process_exit_session",
                          "process_exit_reason", "process_exit_state", "later_intent"}) {
    const std::string text = jsonStringField(world.Get(kRecord), key);
    told += (told.empty() || text.empty() ? "" : " ") + text;
  }
  return world.Get(kRecord) == "<absent>" ? "<absent>" : told;
}

TEST(ShutdownRecord, FollowsItsOwner) {
  struct Row {
    std::vector<const char*> steps;
    const char* told;
    std::map<std::string, std::string> before = {};
  };
  const Row rows[] = {
      {{"node_switch"}, "OWN node_switch requested"},
      {{"sleep"}, "OWN unknown requested"},
      {{"node_switch", "close"}, "OWN node_switch completed"},
      {{"close"}, "OWN unknown completed"},
      {{"node_switch", "close of nobody"}, "unknown node_switch completed"},
      {{"node_switch", "failed close of another"}, "OWN node_switch requested"},
      {{"close", "node_switch"}, "OWN unknown completed node_switch"},
      {{"failed close", "node_switch"}, "OWN unknown failed node_switch"},
      {{"node_switch", "no node_switch"}, "<absent>"},
      {{"node_switch", "no ", "no failed_start"}, "OWN node_switch requested"},
      {{"close", "no unknown"}, "OWN unknown completed"},
      {{"no tray_quit"}, "<absent>"},
      {{"node_switch", "tray_quit"}, "OWN node_switch requested OWN tray_quit requested"},
      {{"node_switch", "tray_quit", "no tray_quit"}, "OWN node_switch requested"},
      {{"node_switch", "tray_quit", "no node_switch"}, "OWN OWN tray_quit requested"},
      {{"tray_quit", "no updater"}, "OWN OWN tray_quit requested"},
      {{"tray_quit", "no tray_quit"}, "<absent>"},
      {{"close"}, "OWN unknown completed", {{"reason", "tray_quit"}}},
      {{"no tray_quit"},
       "s0 tray_quit",
       {{"process_exit_session", "s0"}, {"process_exit_reason", "tray_quit"}}},
      {{"no tray_quit"}, "failed", {{"state", "failed"}, {"process_exit_reason", "tray_quit"}}},
      {{"node_switch"},
       "OWN node_switch requested",
       {{"session_id", "s0"}, {"state", "completed"}, {"later_intent", "updater"}}},
  };
  std::set<std::string> said;
  for (const Row& row : rows) {
    EvidenceWorld world;
    LibboxLogBuffer& evidence = world.Start();
    evidence.beginSession();
    const std::string session = evidence.currentSessionId();
    if (!row.before.empty()) {
      world.Put(kRecord, RecordText(row.before));
    }
    for (const char* step : row.steps) {
      Take(evidence, step);
    }
    EXPECT_EQ(Owned(Owned(Told(world), session), session), row.told) << row.steps.back();
    for (const std::string& line : world.errors.lines()) {
      said.insert(Owned(line, session));
    }
  }
  EXPECT_THAT(
      said,
      testing::IsSupersetOf({
          "[LibboxLogBuffer] Unknown shutdown reason 'sleep', recording as unknown",
          "[LibboxLogBuffer] Ignoring late close result for session another; record is owned by "
          "OWN",
          "[LibboxLogBuffer] Refusing to clear a shutdown intent without a reason",
          "[LibboxLogBuffer] Not clearing shutdown intent 'node_switch': caller expected "
          "'failed_start'",
          "[LibboxLogBuffer] Not clearing shutdown record in state 'completed' \u2014 it holds a "
          "close result",
          "[LibboxLogBuffer] Not clearing process-exit intent 'tray_quit': caller expected "
          "'updater'",
          "[LibboxLogBuffer] Not clearing a process-exit intent owned by s0: this caller is OWN",
      }));
}

TEST(ShutdownRecord, HoldsWhatBecameOfTheSessionAndOfTheProcess) {
  EvidenceWorld world;
  LibboxLogBuffer& evidence = world.Start();
  evidence.beginSession();
  const std::string session = evidence.currentSessionId();
  evidence.recordShutdownIntent("user_disconnect");
  world.clock.Advance(1000);
  evidence.recordCloseResult(session, false, -3, "dial 10.0.0.1:443");
  world.clock.Advance(1000);
  evidence.recordShutdownIntent("updater");
  world.clock.Advance(1000);
  evidence.recordShutdownIntent("node_switch");
  EXPECT_EQ(
      Owned(Owned(world.Get(kRecord), session), session),
      R"({"schema":1,"session_id":"OWN","build_id":"2.16.10+336","process_exit_session":"OWN",)"
      R"("process_exit_reason":"updater","process_exit_state":"requested",)"
      R"("process_exit_at_utc":"2024-01-02T03:04:07Z","reason":"user_disconnect","state":"failed",)"
      R"("requested_at_utc":"2024-01-02T03:04:05Z","result_at_utc":"2024-01-02T03:04:06Z",)"
      R"("later_intent":"node_switch","later_intent_at_utc":"2024-01-02T03:04:08Z",)"
      R"("close_code":-3,"close_error":"dial [ip]"})");
}

TEST(ShutdownRecord, OfNoSessionSaysSo) {
  EvidenceWorld world;
  world.evidence().recordShutdownIntent("node_switch");
  EXPECT_EQ(Told(world), "<no-session> node_switch requested");
  EXPECT_TRUE(world.evidence().clearShutdownIntent("node_switch"));
  EXPECT_FALSE(world.evidence().clearShutdownIntent("node_switch")) << "there is none any more";
}

TEST(SessionLog, KeepsOneRedactedLineForEachBreadcrumb) {
  EvidenceWorld world;
  world.clock.Advance(100'000);
  LibboxLogBuffer& evidence = world.Start();
  evidence.recordBreadcrumb("connect https://user:pw@example.net/x to 10.0.0.1:443", false);
  evidence.recordBreadcrumb("throttled one", true);
  evidence.recordBreadcrumb("throttled two", true);
  world.clock.Advance(30'000);
  evidence.recordBreadcrumb("throttled three", true);
  evidence.recordBreadcrumb(std::string(5000, '.'), false);
  EXPECT_EQ(world.Get(kLog),
            "2024-01-02T03:05:45Z connect [url] to [ip]\n"
            "2024-01-02T03:05:45Z throttled one\n"
            "2024-01-02T03:06:15Z throttled three\n"
            "2024-01-02T03:06:15Z " +
                std::string(4096, '.') + "\n");
}

TEST(SessionLog, IsCutToItsLastLinesAndSaysWhenItFails) {
  EvidenceWorld world;
  LibboxLogBuffer& evidence = world.Start();
  for (int line = 0; line < 600; ++line) {
    evidence.recordBreadcrumb(std::string(480, '.') + " " + std::to_string(line), false);
  }
  const std::string log = world.Get(kLog);
  EXPECT_LE(log.size(), 262'144U + 600U);
  EXPECT_EQ(log.find(" 10\n"), std::string::npos) << "the oldest lines are gone";
  EXPECT_TRUE(log.ends_with(" 599\n"));
  world.Suffer(FailOnce(1, [](const Operation& o) { return o.name == "Files.Open"; }),
               [](LibboxLogBuffer& e) { e.recordBreadcrumb("lost", false); });
  EXPECT_EQ(evidence.getWindowsDiagnosticsFailure(),
            "Windows diagnostic breadcrumb could not be written");
}

}  // namespace
}  // namespace korvane::test
