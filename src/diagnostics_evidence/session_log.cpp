#include "diagnostics_evidence/session_log.h"

#include <deque>
#include <utility>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/evidence_time.h"
#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::string_view kCrashPrefix = "crash-output.";
constexpr std::string_view kCrashSuffix = ".log";
constexpr std::string_view kCrashHeader = "crash-output armed ";

bool AppendLine(const std::string& path, const std::string& line) {
  auto file = os().files->Open(EvidencePath(path), platform::OpenMode::kAppendLog);
  if (!file) {
    ReportEvidence("Failed to append to " + path);
    return false;
  }
  const std::string bytes = line + '\n';
  const auto written = os().files->Write(file.value(), bytes);
  const bool whole = written && written.value() == bytes.size();
  const bool closed = os().files->Close(file.value()).ok();
  if (!whole || !closed) {
    ReportEvidence("Failed while appending to " + path);
    return false;
  }
  return true;
}

void Rotate(const std::string& path, std::size_t keep_lines) {
  std::deque<std::string> lines;
  if (!ReadLastLines(path, keep_lines, lines)) {
    ReportEvidence("Failed to open journal for rotation: " + path);
    return;
  }
  std::string tail;
  for (const std::string& line : lines) {
    tail += line + '\n';
  }
  if (!commitFile(path, tail)) {
    ReportEvidence("Failed to rotate journal: " + path);
  }
}

}  // namespace

void RecordBreadcrumb(EvidenceState& state, const std::string& text, bool throttled) {
  if (!state.diagnostics_enabled) {
    return;
  }
  if (throttled) {
    const std::int64_t now_ms = os().clocks->SteadyNanoseconds() / 1'000'000;
    if (now_ms - state.last_throttled_breadcrumb_ms < kBreadcrumbThrottleMs) {
      return;
    }
    state.last_throttled_breadcrumb_ms = now_ms;
  }
  // Redacted whole before it is cut; the cut knows no characters.
  const std::string clean = redactDiagnosticText(EnsureUtf8(text)).substr(0, kBreadcrumbMaxBytes);
  if (!appendBoundedLog(state.session_log_path, UtcNow() + " " + clean, kSessionLogMaxBytes,
                        kSessionLogKeptLines)) {
    state.diagnostics_failure = "Windows diagnostic breadcrumb could not be written";
  }
}

bool appendBoundedLog(const std::string& path, const std::string& line, std::uint64_t max_bytes,
                      std::size_t keep_lines) {
  const bool appended = AppendLine(path, line);
  const auto size = os().files->SizeOf(EvidencePath(path));
  if (size && size.value() > max_bytes) {
    Rotate(path, keep_lines);
  }
  return appended;
}

bool isCrashOutputName(std::string_view name) {
  return name.size() > kCrashPrefix.size() + kCrashSuffix.size() &&
         name.starts_with(kCrashPrefix) && name.ends_with(kCrashSuffix);
}

std::string crashOutputSession(std::string_view name) {
  if (!isCrashOutputName(name)) {  // coverage: its callers have looked
    return {};
  }
  name.remove_prefix(kCrashPrefix.size());
  name.remove_suffix(kCrashSuffix.size());
  return std::string(name);
}

std::string stripCrashOutputHeader(std::string_view text) {
  std::string stripped;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.starts_with(kCrashHeader) &&
        line.find_first_not_of(" \t\r") != std::string_view::npos) {
      stripped.append(line);
      stripped += '\n';
    }
  }
  return stripped;
}

CrashOutputScan scanCrashOutput(const std::string& path, std::size_t max_bytes,
                                std::string* body_out) {
  std::string text;
  bool absent = false;
  if (!readBounded(path, max_bytes, text, &absent)) {
    return absent ? CrashOutputScan::header_only : CrashOutputScan::read_failed;
  }
  std::string body = stripCrashOutputHeader(text);
  const bool empty = body.empty();
  if (body_out != nullptr) {
    *body_out = std::move(body);
  }
  return empty ? CrashOutputScan::header_only : CrashOutputScan::fatal;
}

}  // namespace korvane
