#include "diagnostics_evidence/crash_summary.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/incident_manifest.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/privacy_migration.h"
#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kLastLogs = 5;

constexpr std::array<std::string_view, 16> kKeywords = {"error:",         "failed",
                                                        "fatal",          "panic",
                                                        "abort",          "connection refused",
                                                        "dial tcp",       "timeout exceeded",
                                                        "invalid config", "missing required",
                                                        "unsupported",    "hysteria2:",
                                                        "shadowsocks:",   "vmess:",
                                                        "vless:",         "trojan:"};

std::string LowerCased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return lower;
}

bool Holds(std::string_view text, std::string_view part) { return text.find(part) != kNone; }

// Takes over the text value of a key; a key that can't be followed leaves the field as it was.
void TakeField(std::string_view line, std::string_view quoted_key, std::string& field) {
  const std::size_t key = line.find(quoted_key);
  const std::size_t colon = key == kNone ? kNone : line.find(':', key + quoted_key.size());
  const std::size_t quote = colon == kNone ? kNone : line.find('"', colon + 1);
  const std::size_t end = quote == kNone ? kNone : FindClosingQuote(line, quote + 1);
  if (end != kNone) {
    field = JsonUnescape(line.substr(quote + 1, end - quote - 1));
  }
}

std::string GuessedLevel(std::string_view line) {
  const std::string lower = LowerCased(line);
  if (Holds(lower, "error") || Holds(lower, "fatal") || Holds(lower, "panic")) {
    return "error";
  }
  if (Holds(lower, "warn")) {
    return "warning";
  }
  return Holds(lower, "debug") ? "debug" : "info";
}

CrashLogEntry EntryOf(const std::string& raw_line) {
  const std::string line = EnsureUtf8(raw_line);
  CrashLogEntry entry;
  entry.msg = line;
  if (line.starts_with('{')) {
    TakeField(line, "\"level\"", entry.level);
    TakeField(line, "\"msg\"", entry.msg);
    TakeField(line, "\"time\"", entry.time);
  } else {
    entry.level = GuessedLevel(line);
  }
  entry.msg = redactDiagnosticText(entry.msg);
  return entry;
}

void AddEntry(std::vector<CrashLogEntry>& entries, std::string& line) {
  if (!line.empty()) {
    entries.push_back(EntryOf(line));
    line.clear();
  }
}

bool HoldsKeyword(const std::string& message) {
  const std::string lower = LowerCased(message);
  return std::any_of(kKeywords.begin(), kKeywords.end(),
                     [&](std::string_view keyword) { return Holds(lower, keyword); });
}

// The path of the incident's log; empty when it has none.
std::string LogOf(const std::string& directory) {
  for (const char* name : {kArchivedSessionLogName, kArchivedLastCrashName}) {
    if (EvidenceExists(directory + name)) {
      return directory + name;
    }
  }
  return {};
}

CrashSummary Summary(const std::vector<CrashLogEntry>& entries) {
  CrashSummary summary;
  summary.summary = summarise(entries);
  summary.log_count = static_cast<std::int32_t>(entries.size());
  for (std::size_t i = entries.size() - std::min(entries.size(), kLastLogs); i < entries.size();
       ++i) {
    summary.last_logs.push_back(entries[i].msg);
  }
  return summary;
}

// Marks the incident and then reads its log.
std::optional<CrashSummary> Consume(const std::string& directory, const std::string& id) {
  if (!writeFileDurable(directory + kCrashLogConsumedName, UtcNow())) {
    ReportEvidence("Could not mark incident " + id +
                   " as consumed; skipping to avoid duplicate reports");
    return std::nullopt;
  }
  const std::string path = LogOf(directory);
  if (path.empty()) {
    return std::nullopt;
  }
  const std::vector<CrashLogEntry> entries = parseCrashLog(path);
  if (entries.empty()) {
    ReportEvidence("Incident " + id + " has an empty or unparseable log; kept as unexplained");
    return std::nullopt;
  }
  CrashSummary summary = Summary(entries);
  ReportEvidence("Crash recovery from incident " + id + ": " + std::to_string(entries.size()) +
                 " logs");
  return summary;
}

}  // namespace

std::vector<CrashLogEntry> parseCrashLog(const std::string& path) {
  constexpr std::uint64_t kPieceBytes = 65'536;
  std::vector<CrashLogEntry> entries;
  if (!migrateEvidenceFile(path)) {
    return entries;
  }
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kRead);
  if (!file) {
    return entries;
  }
  std::string line;
  for (auto piece = os().files->Read(file.value(), kPieceBytes); piece && !piece.value().empty();
       piece = os().files->Read(file.value(), kPieceBytes)) {
    for (const char c : piece.value()) {
      if (c == '\n') {
        AddEntry(entries, line);
      } else {
        line += c;
      }
    }
  }
  AddEntry(entries, line);
  return entries;
}

std::string summarise(const std::vector<CrashLogEntry>& entries) {
  const auto failed = std::find_if(
      entries.rbegin(), entries.rend(),
      [](const CrashLogEntry& entry) { return entry.level == "error" || entry.level == "fatal"; });
  if (failed != entries.rend()) {
    return failed->msg;
  }
  const auto telling =
      std::find_if(entries.rbegin(), entries.rend(),
                   [](const CrashLogEntry& entry) { return HoldsKeyword(entry.msg); });
  if (telling != entries.rend()) {
    return telling->msg;
  }
  return entries.empty() ? "Unknown crash - no log entries captured" : entries.back().msg;
}

std::optional<CrashSummary> SummariseNewestCrash(const std::string& incidents_dir,
                                                 const std::vector<IncidentRow>& rows) {
  for (const IncidentRow& row : rows) {
    const std::string directory = IncidentDirectory(incidents_dir, row.id);
    if (row.reason == "unexplained" && !EvidenceExists(directory + kCrashLogConsumedName)) {
      return Consume(directory, row.id);
    }
  }
  return std::nullopt;
}

}  // namespace korvane
