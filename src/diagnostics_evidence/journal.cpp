#include "diagnostics_evidence/journal.h"

#include <charconv>
#include <deque>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/session_log.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::uint64_t kJournalMaxBytes = 65'536;
constexpr std::size_t kJournalKeptLines = 200;
constexpr std::size_t kFaultMaxBytes = 4096;
constexpr std::size_t kCounterMaxBytes = 64;

std::string FaultPath(const EvidenceState& state) {
  return state.incidents_dir + "journal_write_failed";
}

std::string CounterPath(const EvidenceState& state) {
  return state.incidents_dir + "retention_eviction_total";
}

// The first line as a number; 0 when it is anything but digits, or too large.
std::int64_t ReadCounter(const EvidenceState& state) {
  std::string text;
  if (!readBounded(CounterPath(state), kCounterMaxBytes, text)) {
    return 0;
  }
  const std::string line = text.substr(0, text.find('\n'));
  std::int64_t count = 0;
  const char* const end = line.data() + line.size();
  const auto [stopped, error] = std::from_chars(line.data(), end, count);
  return error == std::errc() && stopped == end && count > 0 ? count : 0;
}

}  // namespace

std::string JournalPath(const EvidenceState& state) {
  return state.incidents_dir + "retention.log";
}

void AppendToJournal(const EvidenceState& state, const std::string& line) {
  static_cast<void>(
      appendBoundedLog(JournalPath(state), line, kJournalMaxBytes, kJournalKeptLines));
}

void journalLine(const EvidenceState& state, const std::string& line) {
  const std::string now = UtcNow();
  if (appendBoundedLog(JournalPath(state), now + " " + line, kJournalMaxBytes, kJournalKeptLines)) {
    return;
  }
  ReportEvidence("Journal write failed: " + line);
  if (!writeFileDurable(FaultPath(state), now + " unjournaled: " + line + "\n")) {
    ReportEvidence("Journal fault file also unwritable");
  }
}

std::vector<std::string> RecentJournalLines(const EvidenceState& state, std::size_t max_lines) {
  std::vector<std::string> recent;
  if (!state.diagnostics_enabled) {
    return recent;
  }
  std::string fault;
  if (readBounded(FaultPath(state), kFaultMaxBytes, fault) && !fault.empty()) {
    if (fault.ends_with('\n')) {
      fault.pop_back();
    }
    recent.push_back("JOURNAL INCOMPLETE: " + EnsureUtf8(fault));
  }
  std::deque<std::string> lines;
  ReadLastLines(JournalPath(state), max_lines, lines);
  for (const std::string& line : lines) {
    recent.push_back(EnsureUtf8(line));
  }
  return recent;
}

std::int64_t EvictionTotal(const EvidenceState& state) {
  return state.diagnostics_enabled ? ReadCounter(state) : 0;
}

void CountEviction(const EvidenceState& state) {
  // Past the greatest number stands one that counts as 0 the next time.
  const auto count = static_cast<std::uint64_t>(ReadCounter(state)) + 1;
  const std::string text = std::to_string(count) + "\n";
  auto file = os().files->Open(EvidencePath(CounterPath(state)), platform::OpenMode::kWriteShared);
  if (file) {
    static_cast<void>(os().files->Write(file.value(), text));
    static_cast<void>(os().files->Close(file.value()));
  }
}

}  // namespace korvane
