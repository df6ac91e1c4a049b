// The life of a session on disk: the preference, the markers, the record and the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diagnostics_evidence/evidence_world.h"

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
                           "libbox_session.log.tmp", "crash-output.s1.log",
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
    const char* operation;
    bool enable;
    bool lasting;
    std::size_t nth;
    const char* failure;
    bool stands_in_registry;
  };
  const Row rows[] = {
      {"Files.Rename", true, false, 1,
       "Cannot stage Windows diagnostics preference; capture remains off", false},
      {"Registry.WriteDword", true, false, 1,
       "Cannot save Windows diagnostics preference; capture remains off", false},
      {"Files.CreateDirectories", true, false, 1,
       "Cannot create Windows diagnostics directory; capture remains off", true},
      {"Files.RemoveFile", true, false, 1,
       "Cannot clear Windows diagnostics revocation; capture remains off", true},
      {"Files.RemoveFile", true, false, 2,
       "Cannot clear Windows diagnostics revocation; capture remains off", true},
      {"Registry.WriteDword", false, false, 1,
       "Cannot save Windows diagnostics preference; capture remains off", true},
      {"Files.Rename", false, false, 1,
       "Cannot save Windows diagnostics preference; capture remains off", false},
      {"Files.RemoveFile", false, true, 1,
       "Diagnostics are off, but retained evidence could not be cleared", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.operation) + (row.enable ? ", on" : ", off"));
    EvidenceWorld world(/*captures=*/!row.enable);
    if (!row.enable) {
      LeaveEverything(world);
    }
    world.Start();
    const auto failing = [&](const Operation& o) { return o.name == row.operation; };
    world.Suffer(row.lasting ? FailFrom(row.nth, failing) : FailOnce(row.nth, failing),
                 [&](LibboxLogBuffer& evidence) {
                   std::string failure;
                   EXPECT_FALSE(evidence.setWindowsDiagnosticsEnabled(row.enable, &failure));
                   EXPECT_EQ(failure, row.failure);
                   EXPECT_EQ(evidence.getWindowsDiagnosticsFailure(), row.failure);
                   EXPECT_FALSE(evidence.getWindowsDiagnosticsEnabled());
                 });
    const auto value = world.registry.values.find(L"Software\\Korvane\\WindowsDiagnosticsEnabled");
    EXPECT_EQ(value != world.registry.values.end() && value->second == 1, row.stands_in_registry);
    // A second try does what the first could not.
    EXPECT_TRUE(world.evidence().setWindowsDiagnosticsEnabled(row.enable, nullptr));
    EXPECT_EQ(world.Start().getWindowsDiagnosticsEnabled(), row.enable);
  }
}

TEST(Preference, SaysWhenNothingOfTheRevocationLasts) {
  EvidenceWorld world;
  const auto failing = [](const Operation& o) {
    return o.name == "Files.Rename" || o.name == "Registry.WriteDword";
  };
  world.Suffer(FailFrom(1, failing), [](LibboxLogBuffer& evidence) {
    std::string failure;
    EXPECT_FALSE(evidence.setWindowsDiagnosticsEnabled(false, &failure));
    EXPECT_EQ(failure,
              "Cannot persist diagnostics revocation: capture is off only for this process; retry "
              "before restarting");
  });
}

TEST(Session, LeavesTheMarkersOfItsEnd) {
  struct Row {
    const char* what;
    void (*end)(LibboxLogBuffer& evidence, const std::string& session);
    std::vector<std::string> left;
  };
  const Row rows[] = {
      {"running", [](LibboxLogBuffer&, const std::string&) {}, {kActive}},
      {"closed",
       [](LibboxLogBuffer& evidence, const std::string& session) {
         evidence.recordShutdownIntent("user_disconnect");
         evidence.recordCloseResult(session, true, std::nullopt, "");
         evidence.markCleanShutdown();
       },
       {kClean, kRecord}},
      {"failed to close",
       [](LibboxLogBuffer& evidence, const std::string& session) {
         evidence.recordShutdownIntent("user_disconnect");
         evidence.recordCloseResult(session, false, -3, "stuck");
         evidence.markCleanShutdown();
       },
       {kRecord}},
      {"never came up",
       [](LibboxLogBuffer& evidence, const std::string&) {
         evidence.recordShutdownIntent("failed_start");
         evidence.markFailedStart();
       },
       {kFailedStart, kRecord}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EvidenceWorld world;
    LibboxLogBuffer& evidence = world.Start();
    evidence.beginSession();
    const std::string session = evidence.currentSessionId();
    EXPECT_EQ(world.Get(kActive), MarkerText(session, kNow));
    row.end(evidence, session);
    std::vector<std::string> left;
    for (const auto& [name, bytes] : world.Snapshot()) {
      left.push_back(name);
      if (name != kRecord) {
        EXPECT_EQ(bytes, MarkerText(session, kNow));
      }
    }
    EXPECT_EQ(left, row.left);
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

// What the record says of a session, after some steps.
TEST(ShutdownRecord, FollowsItsOwner) {
  using Step = void (*)(LibboxLogBuffer&, const std::string& session);
  const Step user = [](LibboxLogBuffer& e, const std::string&) {
    e.recordShutdownIntent("user_disconnect");
  };
  const Step quit = [](LibboxLogBuffer& e, const std::string&) {
    e.recordShutdownIntent("tray_quit");
  };
  const Step clear_user = [](LibboxLogBuffer& e, const std::string&) {
    e.clearShutdownIntent("user_disconnect");
  };
  const Step clear_quit = [](LibboxLogBuffer& e, const std::string&) {
    e.clearShutdownIntent("tray_quit");
  };
  const Step close = [](LibboxLogBuffer& e, const std::string& s) {
    e.recordCloseResult(s, true, 0, "");
  };
  const Step late_close = [](LibboxLogBuffer& e, const std::string&) {
    e.recordCloseResult("another", false, 9, "late");
  };
  struct Row {
    const char* what;
    std::vector<Step> steps;
    const char* reason;
    const char* state;
    const char* exit_reason;
    const char* exit_state;
    const char* later_intent;
  };
  const Row rows[] = {
      {"asked", {user}, "user_disconnect", "requested", "", "", ""},
      {"closed", {user, close}, "user_disconnect", "completed", "", "", ""},
      {"withdrawn", {user, clear_user}, "", "", "", "", ""},
      {"withdrawn too late", {user, close, clear_user}, "user_disconnect", "completed", "", "", ""},
      {"asked again behind the close",
       {user, close, user},
       "user_disconnect",
       "completed",
       "",
       "",
       "user_disconnect"},
      {"another session's close", {user, late_close}, "user_disconnect", "requested", "", "", ""},
      {"quit while stopping",
       {user, quit},
       "user_disconnect",
       "requested",
       "tray_quit",
       "requested",
       ""},
      {"quit withdrawn", {user, quit, clear_quit}, "user_disconnect", "requested", "", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EvidenceWorld world;
    LibboxLogBuffer& evidence = world.Start();
    evidence.beginSession();
    for (const Step step : row.steps) {
      step(evidence, evidence.currentSessionId());
    }
    const std::string text = world.Get(kRecord);
    const auto record = text == "<absent>" ? nlohmann::json::object() : nlohmann::json::parse(text);
    EXPECT_EQ(record.value("reason", ""), row.reason);
    EXPECT_EQ(record.value("state", ""), row.state);
    EXPECT_EQ(record.value("process_exit_reason", ""), row.exit_reason);
    EXPECT_EQ(record.value("process_exit_state", ""), row.exit_state);
    EXPECT_EQ(record.value("later_intent", ""), row.later_intent);
  }
}

TEST(ShutdownRecord, OfAFormerProcessIsTakenOverWithoutItsLaterWord) {
  EvidenceWorld world;
  world.Put(kRecord, RecordText({{"session_id", "s0"},
                                 {"state", "completed"},
                                 {"later_intent", "updater"},
                                 {"later_intent_at_utc", "t"}}));
  world.Start().recordShutdownIntent("user_disconnect");
  const auto record = nlohmann::json::parse(world.Get(kRecord));
  EXPECT_EQ(record["session_id"], "<no-session>");
  EXPECT_EQ(record["reason"], "user_disconnect");
  EXPECT_EQ(record["later_intent"], "");
  EXPECT_EQ(record["later_intent_at_utc"], "");
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
