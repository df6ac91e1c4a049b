#include "diagnostics_evidence/retention.h"

#include <algorithm>
#include <string>
#include <vector>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_archive.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/journal.h"
#include "diagnostics_evidence/json_text.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::size_t kIdTimeCharacters = 16;

struct RetentionEntry {
  std::string id;
  std::string directory;
  std::string reason;
  std::int64_t total_bytes = 0;
  bool pending = false;
  bool evicted = false;
};

std::int64_t SizeOrZero(const std::string& path) {
  const auto size = os().files->SizeOf(EvidencePath(path));
  return size ? static_cast<std::int64_t>(size.value()) : 0;
}

RetentionEntry MeasureIncident(const EvidenceState& state, const std::string& id) {
  RetentionEntry entry;
  entry.id = id;
  entry.directory = IncidentFolder(state, id);
  std::string manifest;
  if (readBounded(IncidentFile(state, id, kManifestName), kManifestHeadMaxBytes, manifest)) {
    entry.reason = jsonStringField(manifest, "reason");
  }
  entry.pending = EvidenceExists(IncidentFile(state, id, kPendingName));
  const FolderFiles files = ListFolderFiles(entry.directory);
  for (const std::string& name : files.names) {
    entry.total_bytes += SizeOrZero(IncidentFile(state, id, name));
  }
  if (!files.listing_error.empty()) {
    ReportEvidence("Size scan failed for incident " + id + ": " + files.listing_error);
    journalLine(state, "size_scan_failed " + id + " error=" + files.listing_error);
  }
  return entry;
}

class RetentionPass {
 public:
  // The entries in ascending order of their ids; at least two.
  RetentionPass(const EvidenceState& state, std::vector<RetentionEntry> entries)
      : state_(state),
        entries_(std::move(entries)),
        total_(SizeOrZero(JournalPath(state))),
        live_(static_cast<std::int64_t>(entries_.size())) {
    for (const RetentionEntry& entry : entries_) {
      total_ += entry.total_bytes;
    }
  }

  void EvictByAge() {
    const std::int64_t now_seconds = os().clocks->UnixMilliseconds() / 1000;
    for (RetentionEntry* entry : Evictable()) {
      const auto made_at =
          entry->id.size() < kIdTimeCharacters
              ? std::nullopt
              : ParseCompactUtc(std::string_view(entry->id).substr(0, kIdTimeCharacters));
      if (made_at && now_seconds - *made_at > kIncidentMaxAgeSeconds) {
        Evict(*entry, "age");
      }
    }
  }

  void EvictByBudget() {
    std::vector<RetentionEntry*> candidates = Evictable();
    std::stable_partition(candidates.begin(), candidates.end(),
                          [](const RetentionEntry* entry) { return entry->reason == "clean"; });
    for (RetentionEntry* entry : candidates) {
      if (!OverBudget()) {
        break;
      }
      Evict(*entry, live_ > kMaxIncidents ? "count" : "size");
    }
    const auto skipped_pending =
        std::count_if(entries_.begin(), entries_.end() - 1,
                      [](const RetentionEntry& entry) { return entry.pending; });
    if (skipped_pending > 0 && OverBudget()) {
      journalLine(state_, "skipped_pending count=" + std::to_string(skipped_pending) + " live=" +
                              std::to_string(live_) + " bytes=" + std::to_string(total_));
    }
  }

 private:
  bool OverBudget() const { return live_ > kMaxIncidents || total_ > kMaxArchiveBytes; }

  // What is left and may go, oldest first: neither the newest nor an unfinished one.
  std::vector<RetentionEntry*> Evictable() {
    std::vector<RetentionEntry*> evictable;
    for (auto entry = entries_.begin(); entry != entries_.end() - 1; ++entry) {
      if (!entry->pending && !entry->evicted) {
        evictable.push_back(&*entry);
      }
    }
    return evictable;
  }

  void Evict(RetentionEntry& entry, const std::string& cause) {
    std::string failure;
    if (!RemoveEvidenceTree(EvidencePath(entry.directory), &failure)) {
      ReportEvidence("Failed to evict incident " + entry.id + ": " + failure);
      return;
    }
    entry.evicted = true;
    total_ -= entry.total_bytes;
    --live_;
    const std::string reason = entry.reason.empty() ? "unknown" : entry.reason;
    journalLine(state_, "evicted " + entry.id + " reason=" + reason +
                            " bytes=" + std::to_string(entry.total_bytes) + " cause=" + cause);
    CountEviction(state_);
    ReportEvidence("Evicted incident " + entry.id + " (cause=" + cause + ")");
  }

  const EvidenceState& state_;
  std::vector<RetentionEntry> entries_;
  std::int64_t total_;
  std::int64_t live_;
};

}  // namespace

void applyRetention(const EvidenceState& state) {
  std::vector<std::string> ids;
  std::string error;
  if (!ListIncidents(state, ids, error)) {
    ReportEvidence("Retention scan failed: " + error);
    return;
  }
  std::vector<RetentionEntry> entries;
  entries.reserve(ids.size());
  for (const std::string& id : ids) {
    entries.push_back(MeasureIncident(state, id));
  }
  if (entries.size() < 2) {
    return;
  }
  RetentionPass pass(state, std::move(entries));
  pass.EvictByAge();
  pass.EvictByBudget();
}

}  // namespace korvane
