// What is said when an operation fails: one life of a process, from its start over an import, a
// listing and a session to its end, with each of its operations failed, once and from there on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_scenarios.h"
#include "diagnostics_evidence/incident_manifest.h"

namespace korvane::test {
namespace {

constexpr char kId[] = "20240102T030405Z-s1";

using Words = std::set<std::string>;

// One of each kind: what is archived, placed, cleared, cleaned and evicted, leftovers of another
// session, and a journal that is too long.
void LeaveOneOfEach(EvidenceWorld& world) {
  LeaveCrash(world);
  world.Put("libbox_clean_shutdown", MarkerText("s0"));
  world.Put("libbox_failed_start", MarkerText("s0"));
  world.Put("libbox_shutdown_record.json", RecordText({{"session_id", "s1"},
                                                       {"process_exit_session", "s0"},
                                                       {"process_exit_reason", "tray_quit"}}));
  world.Put("crash-output.s1.log", "panic\n");
  world.Put("crash-output.s0.log", "panic\n");
  world.Put("incidents/20230101T000000Z-old/manifest.json", R"({"reason":"unexplained"})");
  world.Put("incidents/20240101T000000Z-bare/pending", R"({"session_id":"bare"})");
  world.Put("incidents/20240101T000001Z-done/pending", R"({"session_id":"done"})");
  world.Put("incidents/20240101T000001Z-done/manifest.json", R"({"session_id":"done"})");
  std::string journal;
  while (journal.size() <= 65'536) {
    journal += "a former line\n";
  }
  world.Put("incidents/retention.log", journal);
}

void ImportAndList(LibboxLogBuffer& evidence, Words& said) {
  std::string failure;
  evidence.importPendingIncidents(&failure);
  said.insert(failure);
  evidence.getPendingIncidents(&failure);
  said.insert(failure);
  evidence.acknowledgeIncident(kId, 7);
  evidence.acknowledgeIncident(kId, 0);
  evidence.checkForCrashLogs();
  for (const std::string& line : evidence.evictedIncidents(50)) {
    said.insert(line);
  }
}

void RunASession(LibboxLogBuffer& evidence) {
  evidence.beginSession();
  evidence.recordBreadcrumb("up", false);
  evidence.recordShutdownIntent("user_disconnect");
  evidence.clearShutdownIntent("user_disconnect");
  evidence.recordShutdownIntent("tray_quit");
  evidence.recordCloseResult(evidence.currentSessionId(), true, 0, "");
  evidence.recordShutdownIntent("node_switch");
  evidence.markCleanShutdown();
  evidence.markFailedStart();
  evidence.writeOsShutdownMarker();
}

// The text with names for what differs from run to run and from system to system.
std::string Named(std::string text, const std::string& session) {
  std::ranges::replace(text, '\\', '/');
  const std::pair<std::string, const char*> names[] = {
      {"[LibboxLogBuffer]", "[]"},
      {"/roaming/Korvane/", "ROOT/"},
      {kId, "ID"},
      {"2024-01-02T03:04:05Z", "NOW"},
      {"20240102T030405Z", "NOW"},
      {session, "SESSION"},
      {platform::RealOs().text->ErrorMessage(kInjectedError), "WHY"},
  };
  for (const auto& [what, name] : names) {
    for (auto at = text.find(what); !what.empty() && at != text.npos; at = text.find(what, at)) {
      text.replace(at, what.size(), name);
    }
  }
  return text;
}

// Adds all that the life says under the plan. Gives how many operations there were.
std::size_t Live(CountingPlan plan, Words& said) {
  EvidenceWorld world;
  LeaveOneOfEach(world);
  Words raw;
  std::string session;
  const std::size_t counted = world.Restart(std::move(plan), [&](LibboxLogBuffer& evidence) {
    raw.insert(evidence.getWindowsDiagnosticsFailure());
    ImportAndList(evidence, raw);
    for (const auto& [name, bytes] : world.Snapshot()) {
      for (const std::string& error : ReadImportErrors(bytes)) {
        raw.insert(error);
      }
    }
    RunASession(evidence);
    raw.insert(evidence.getWindowsDiagnosticsFailure());
    session = evidence.currentSessionId();
  });
  for (const std::string& line : world.errors.lines()) {
    raw.insert(line);
  }
  for (const std::string& text : raw) {
    said.insert(Named(text, session));
  }
  return counted;
}

const char* const kTexts[] = {
    "Cannot inspect diagnostics revocation; capture remains off",
    "Cannot read Windows diagnostics preference; capture remains off",
    "Cannot create Windows diagnostics directory; capture remains off",
    "[] Diagnostics are off, but retained evidence could not be cleared",
    "[] Failed to create directory: ROOT/ (WHY)",
    "[] Failed to create file: ROOT/incidents/ID/pending.tmp (error: 5)",
    "[] Short/failed write: ROOT/libbox_session_active (error: 5)",
    "[] Failed to flush: ROOT/libbox_clean_shutdown (error: 5)",
    "[] Failed to commit ROOT/libbox_shutdown_record.json: WHY",
    "[] Failed to open for read: ROOT/incidents/ID/manifest.json",
    "[] Read error on: ROOT/incidents/ID/manifest.json",
    "[] Failed to append to ROOT/libbox_session.log",
    "[] Failed while appending to ROOT/libbox_session.log",
    "[] Failed to open journal for rotation: ROOT/incidents/retention.log",
    "[] Failed to rotate journal: ROOT/incidents/retention.log",
    "Windows diagnostic breadcrumb could not be written",

    "[] Incidents directory unavailable (WHY); previous-session evidence cannot be archived",
    "incidents directory unavailable: WHY",
    "[] Failed to recover manifest for 20240101T000000Z-bare; incident stays pending",
    "[] NOW import_aborted incidents_scan_incomplete error=WHY",
    "NOW import_aborted incidents_scan_incomplete error=WHY",
    "[] NOW import_aborted base_scan_incomplete error=WHY",
    "NOW import_aborted base_scan_incomplete error=WHY",
    "[] import aborted: session-active marker exists but could not be read; sources untouched, "
    "retry at the next session boundary",
    "import aborted: clean-shutdown marker exists but could not be read; sources untouched, retry "
    "at the next session boundary",
    "import aborted: failed-start marker exists but could not be read; sources untouched, retry at "
    "the next session boundary",
    "import aborted: shutdown-record marker exists but could not be read; sources untouched, retry "
    "at the next session boundary",
    "NOW import_aborted marker_unreadable session-active",
    "[] Failed to create incident directory ROOT/incidents/ID (WHY); leaving previous-session "
    "evidence in place",
    "incident directory could not be created: WHY",
    "[] Pending sentinel not persisted for ID; leaving previous-session evidence in place",
    "pending sentinel could not be written",
    "[] Failed to write manifest for incident ID; it stays pending and the previous-session "
    "markers are KEPT for the next import",
    "manifest could not be written",
    "[] Manifest for incident ID could not be verified after the write; it stays pending and the "
    "previous-session markers are KEPT",
    "manifest did not verify after the write",
    "[] Incident ID has an unmoved source file; keeping the pending sentinel and ALL "
    "previous-session markers for a retry",
    "a source file could not be moved into the incident",
    "[] remove libbox_session_active: WHY",
    "remove libbox_session_active: WHY",
    "[] Failed to record consume errors in the manifest of incident ID",
    "[] Failed to clear pending sentinel for incident ID: WHY",
    "[] Failed to clear pending sentinel for incident 20240101T000001Z-done: WHY",
    "[] Archived incident ID reason=unexplained marker=session_active crash_output=yes resumed=no "
    "import_errors=3",
    "clean-shutdown marker belongs to session s0, not s1 (leftover, not used to classify)",
    "failed-start marker belongs to session s0, not s1 (leftover, not used to classify)",
    "foreign_or_sessionless_intent: the process-exit intent 'tray_quit' is owned by 's0', not s1; "
    "it classifies nothing here",

    "[] Privacy migration read failed",
    "[] Privacy migration incomplete read",
    "[] Privacy migration commit failed; withholding evidence",
    "privacy migration failed; payload withheld",
    "archived privacy migration failed; payload withheld",
    "[] rename libbox_session.log -> session.log: WHY",
    "rename libbox_session.log -> session.log: WHY",
    "[] scan of the incident directory failed: WHY (crash-output evidence may be undercounted)",
    "scan of the incident directory failed: WHY (crash-output evidence may be undercounted)",
    "evidence_read_error: crash-output.s1.log is present but could not be read; this incident is "
    "withheld until it can be",
    "[] Could not create the incident directory for orphan session s0: WHY",
    "[] Sentinel not persisted for orphan session s0; its crash output stays flat",
    "[] Could not move crash-output.s0.log to its own incident: WHY",
    "[] Manifest not written for orphan incident NOW-s0",
    "[] Manifest for orphan incident NOW-s0 did not verify",
    "[] Could not clear the sentinel of orphan incident NOW-s0: WHY",
    "crash output of session s0 could not be archived on its own; retrying on the next start",

    "[] Size scan failed for incident ID: WHY",
    "NOW size_scan_failed ID error=WHY",
    "[] Retention scan failed: WHY",
    "[] Failed to evict incident 20230101T000000Z-old: WHY",
    "[] Evicted incident 20230101T000000Z-old (cause=age)",
    "[] Journal write failed: size_scan_failed ID error=WHY",
    "[] Journal fault file also unwritable",
    "JOURNAL INCOMPLETE: NOW unjournaled: evicted 20230101T000000Z-old reason=unexplained bytes=24 "
    "cause=age",

    "[] Privacy migration failed; incident withheld",
    "privacy migration failed; evidence withheld",
    "[] file scan of this incident failed: WHY (ID)",
    "[] an entry in this incident could not be classified (transient stat error) (ID)",
    "[] Failed to list incidents: WHY",
    "incidents directory could not be enumerated: WHY",
    "[] Withholding incident ID: its import has not finished",
    "[] Withholding incident ID: a crash-output file is present but unreadable",
    "[] Withholding incident ID: its file scan did not complete",
    "[] Refusing to acknowledge incident ID: caller saw import generation 7, the archive is now at "
    "0",
    "[] Refusing to acknowledge incident ID: its import has not finished",
    "[] Refusing to acknowledge incident ID: an entry could not be classified (WHY)",
    "[] Refusing to acknowledge incident ID: a crash-output file is present but unreadable",
    "[] Refusing to acknowledge incident ID: its directory could not be enumerated (WHY)",
    "[] Could not mark incident ID as consumed; skipping to avoid duplicate reports",

    "[] Session start marker unavailable; evidence for session SESSION may be unattributed",
    "[] Shutdown intent 'user_disconnect' not persisted for session SESSION",
    "[] Failed to clear shutdown record: WHY",
    "[] Process-exit intent 'tray_quit' not persisted for session SESSION",
    "[] Shutdown result (completed) not persisted for session SESSION",
    "[] Later shutdown intent 'node_switch' not persisted for session SESSION",
    "[] Clean-shutdown marker not persisted; the next launch will classify this session as "
    "unexplained",
    "[] failed_start marker not persisted",
    "[] Failed to remove session marker: WHY",
    "[] Failed to write OS shutdown marker: ROOT/os_shutdown_marker (error: 5)",
};

TEST(EvidenceSweep, TellsEachFailureInItsWords) {
  Words said;
  for (const auto plan : {FailOnce, FailFrom}) {
    for (std::size_t at = 1; Live(plan(at, FallibleOperation), said) >= at; ++at) {
    }
  }
  for (const char* text : kTexts) {
    EXPECT_TRUE(said.contains(text)) << text;
  }
}

TEST(EvidenceSweep, CallsItNoFailureThatAFileIsGoneAlready) {
  CountingPlan gone = FailOnce(1, [](const Operation& o) {
    return o.name == "Files.RemoveFile" || o.name == "Files.RemoveDirectory" ||
           (o.name == "Files.Open" && !o.changes);
  });
  gone.error = 2;  // what the files of this world call "not found"
  Words said;
  for (; Live(gone, said) >= gone.at; ++gone.at) {
  }
  const std::string words = platform::RealOs().text->ErrorMessage(gone.error);
  for (const std::string& failure : {words, std::string("is present but")}) {
    EXPECT_THAT(said, testing::Each(testing::Not(testing::HasSubstr(failure))));
  }
}

// A disk that fills up in the middle of a write.
class FullFiles : public MemoryFiles {
 public:
  platform::Result<std::size_t> Write(platform::File& file, std::string_view bytes) override {
    return MemoryFiles::Write(file, bytes.substr(0, bytes.size() / 2));
  }
};

TEST(EvidenceFiles, AWriteThatIsCutShortHasFailed) {
  EvidenceWorld world;
  LibboxLogBuffer& evidence = world.Start();
  FullFiles full;
  static_cast<void>(full.CreateDirectories(EvidencePath(evidence.baseDirectory())));
  platform::Os os = platform::os();
  os.files = &full;
  const platform::ScopedOs in_force(os);
  evidence.recordBreadcrumb("up", false);
  EXPECT_EQ(evidence.getWindowsDiagnosticsFailure(),
            "Windows diagnostic breadcrumb could not be written");
  evidence.markFailedStart();
  EXPECT_THAT(world.errors.lines(),
              testing::Contains(testing::MatchesRegex(
                  ".*Short/failed write: .*libbox_failed_start \\(error: 0\\)")));
}

}  // namespace
}  // namespace korvane::test
