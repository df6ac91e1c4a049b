#include "diagnostics_evidence/privacy_migration.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "diagnostics_evidence/evidence_files.h"
#include "diagnostics_evidence/json_text.h"
#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"

namespace korvane {

namespace {

using platform::os;

constexpr std::size_t kNone = std::string_view::npos;

enum class Outcome { kDone, kStopped, kNotOpened, kReadFailed };

bool Reported(const char* what) {
  ReportEvidence(what);
  return false;
}

bool ReportedUnread(Outcome outcome) {
  return Reported(outcome == Outcome::kNotOpened ? "Privacy migration read failed"
                                                 : "Privacy migration incomplete read");
}

// Hands on the file piece by piece while `take` wants more.
template <typename Take>
Outcome ReadPieces(const std::filesystem::path& path, const Take& take) {
  constexpr std::uint64_t kPieceBytes = 65'536;
  auto file = os().files->Open(path, platform::OpenMode::kRead);
  if (!file) {
    return Outcome::kNotOpened;
  }
  for (;;) {
    const auto piece = os().files->Read(file.value(), kPieceBytes);
    if (!piece) {
      return Outcome::kReadFailed;
    }
    if (piece.value().empty()) {
      return Outcome::kDone;
    }
    if (!take(std::string_view(piece.value()))) {
      return Outcome::kStopped;
    }
  }
}

// Hands on blocks of whole lines, of about a piece or of one long line. The last one may end
// without a line feed; there is none that is empty.
template <typename Take>
Outcome ReadBlocks(const std::filesystem::path& path, const Take& take) {
  std::string block;
  const auto split = [&](std::string_view piece) {
    const std::size_t last = piece.rfind('\n');
    if (last == kNone) {
      block += piece;
      return true;
    }
    block += piece.substr(0, last + 1);
    if (!take(block)) {
      return false;
    }
    block = piece.substr(last + 1);
    return true;
  };
  const Outcome outcome = ReadPieces(path, split);
  if (outcome == Outcome::kDone && !block.empty() && !take(block)) {
    return Outcome::kStopped;
  }
  return outcome;
}

// Whether each of the lines is clean. They are looked at together: nothing that is replaced reaches
// over a line feed but a control sequence, and its first byte makes the line unclean by itself.
bool AreClean(std::string_view lines) {
  return IsValidUtf8(lines) && redactDiagnosticText(lines) == lines;
}

void AppendCleaned(std::string_view lines, std::string& clean) {
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    clean += redactDiagnosticText(EnsureUtf8(lines.substr(0, end)));
    if (end == kNone) {
      return;
    }
    clean += '\n';
    lines.remove_prefix(end + 1);
  }
}

bool Commit(const std::string& path, const std::string& text) {
  if (!commitFile(path, text)) {
    return Reported("Privacy migration commit failed; withholding evidence");
  }
  return true;
}

bool MigrateLog(const std::string& narrow, const std::filesystem::path& path) {
  const Outcome checked = ReadBlocks(path, AreClean);
  if (checked == Outcome::kDone) {
    return true;
  }
  if (checked != Outcome::kStopped) {
    return ReportedUnread(checked);
  }
  std::string clean;
  const Outcome outcome = ReadBlocks(path, [&clean](std::string_view lines) {
    AppendCleaned(lines, clean);
    return true;
  });
  return outcome == Outcome::kDone ? Commit(narrow, clean) : ReportedUnread(outcome);
}

bool MigrateJson(const std::string& narrow, const std::filesystem::path& path) {
  std::string text;
  const Outcome outcome = ReadPieces(path, [&text](std::string_view piece) {
    text += piece;
    return true;
  });
  if (outcome != Outcome::kDone) {
    return ReportedUnread(outcome);
  }
  std::string clean = text;
  if (!migrateCloseErrors(clean)) {
    return Reported("Privacy metadata parse failed");
  }
  return clean == text || Commit(narrow, clean);
}

// The place of the character, behind white space; npos when another stands there.
std::size_t Expect(std::string_view text, std::size_t at, char wanted) {
  const std::size_t found = text.find_first_not_of(" \t\n\v\f\r", at);
  return found != kNone && text[found] == wanted ? found : kNone;
}

}  // namespace

bool migrateEvidenceFile(const std::string& path) {
  const std::filesystem::path native = EvidencePath(path);
  const std::filesystem::path extension = native.extension();
  if (extension == ".log") {
    return MigrateLog(path, native);
  }
  return extension != ".json" || MigrateJson(path, native);
}

bool migrateCloseErrors(std::string& text) {
  constexpr std::string_view kKey = "\"close_error\"";
  const std::string_view raw = text;
  std::string clean;
  std::size_t copied = 0;
  for (std::size_t key = raw.find(kKey); key != kNone; key = raw.find(kKey, copied)) {
    const std::size_t colon = Expect(raw, key + kKey.size(), ':');
    const std::size_t quote = colon == kNone ? kNone : Expect(raw, colon + 1, '"');
    const std::size_t end = quote == kNone ? kNone : FindClosingQuote(raw, quote + 1);
    if (end == kNone) {
      return false;
    }
    clean += raw.substr(copied, quote + 1 - copied);
    clean += jsonEscape(redactDiagnosticText(JsonUnescape(raw.substr(quote + 1, end - quote - 1))));
    copied = end;
  }
  clean += raw.substr(copied);
  text = std::move(clean);
  return true;
}

}  // namespace korvane
