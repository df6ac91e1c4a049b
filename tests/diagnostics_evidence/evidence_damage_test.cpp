// Evidence that a disk has damaged: every file of a real archive and a real boundary, cut at every
// byte and with every bit flipped. An import, a listing and a summary come to their end; nothing
// gets out of the archive, and the boundary behind it is clean.
#include <gtest/gtest.h>

#include "diagnostics_evidence/evidence_world.h"

namespace korvane::test {
namespace {

constexpr char kRecord[] = "libbox_shutdown_record.json";

// What two sessions of a real host leave: one archived, one that crashed just now.
std::map<std::string, std::string> RealEvidence() {
  EvidenceWorld world;
  world.clock.Advance(60'000);
  LibboxLogBuffer& first = world.Start();
  first.beginSession();
  first.recordBreadcrumb("state=up", false);
  first.recordShutdownIntent("user_disconnect");
  first.recordCloseResult(first.currentSessionId(), false, -3, "dial [ip] failed");
  LibboxLogBuffer& second = world.Start();
  second.importPendingIncidents(nullptr);
  second.acknowledgeIncident(world.Incidents().at(0), 0);
  second.beginSession();
  second.recordBreadcrumb("state=up", false);
  second.recordShutdownIntent("tray_quit");
  world.Put("crash-output." + second.currentSessionId() + ".log", "crash-output armed x\npanic\n");
  return world.Snapshot();
}

void Survive(const std::map<std::string, std::string>& evidence, const std::string& damaged,
             const std::string& bytes) {
  EvidenceWorld world;
  for (const auto& [name, original] : evidence) {
    world.Put(name, name == damaged ? bytes : original);
  }
  world.Start().importPendingIncidents(nullptr);
  for (const IncidentRow& row : world.Start().getPendingIncidents(nullptr)) {
    EXPECT_TRUE(row.reason == "clean" || row.reason == "unexplained" ||
                row.reason == "intentional_exit" || row.reason == "failed_start" ||
                damaged.ends_with("/manifest.json"))
        << row.reason;
  }
  world.evidence().checkForCrashLogs();
  world.Start().importPendingIncidents(nullptr);
  // A record that can't be cleaned holds the import up; see below.
  for (const auto& [name, content] : world.Snapshot()) {
    EXPECT_TRUE(name.starts_with("incidents/") || damaged == kRecord) << name << " lies flat";
  }
}

TEST(DamagedRecord, HoldsUpTheImportUntilTheNextIntent) {
  EvidenceWorld world;
  world.Put("libbox_session_active", MarkerText("s1"));
  world.Put(kRecord, R"({"session_id":"s1","close_error":"cut in its)");
  EXPECT_FALSE(world.Start().importPendingIncidents(nullptr));
  EXPECT_FALSE(world.Start().importPendingIncidents(nullptr));
  LibboxLogBuffer& third = world.Start();
  third.beginSession();
  third.recordShutdownIntent("user_disconnect");
  EXPECT_TRUE(world.Start().importPendingIncidents(nullptr));
  const auto rows = world.evidence().getPendingIncidents(nullptr);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].session_id, "s1");
}

TEST(EvidenceCuts, AtEveryByteAreSurvived) {
  const auto evidence = RealEvidence();
  ASSERT_GE(evidence.size(), 6U);
  for (const auto& [name, bytes] : evidence) {
    SCOPED_TRACE(name);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      Survive(evidence, name, bytes.substr(0, size));
    }
  }
}

class EvidenceDamage : public testing::TestWithParam<int> {};  // a bit of each byte

TEST_P(EvidenceDamage, FlippedBitsAreSurvived) {
  const auto evidence = RealEvidence();
  for (const auto& [name, bytes] : evidence) {
    SCOPED_TRACE(name);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      std::string flipped = bytes;
      flipped[at] = static_cast<char>(flipped[at] ^ (1 << GetParam()));
      Survive(evidence, name, flipped);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Bits, EvidenceDamage, testing::Range(0, 8));

}  // namespace
}  // namespace korvane::test
