// Arbitrary bytes as the log of a crash: what is told of it is text without a secret.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "diagnostics_evidence/crash_summary.h"
#include "diagnostics_evidence/redaction.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"
#include "require.h"
#include "silent_error_stream.h"
#include "support/memory_files.h"

namespace {

using korvane::fuzz::Require;

constexpr char kLog[] = "/crash/session.log";

void Put(korvane::test::MemoryFiles& files, const std::string& bytes) {
  Require(static_cast<bool>(files.CreateDirectories("/crash")));
  auto file = files.Open(kLog, korvane::platform::OpenMode::kWriteShared);
  Require(file && files.Write(file.value(), bytes));
}

std::string Log(korvane::test::MemoryFiles& files) {
  auto file = files.Open(kLog, korvane::platform::OpenMode::kRead);
  Require(static_cast<bool>(file));
  return files.Read(file.value(), std::uint64_t{1} << 30U).value();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korvane::fuzz::SilentErrorStream silent;
  korvane::test::MemoryFiles files;
  korvane::platform::Os os = korvane::platform::RealOs();
  os.error_stream = &silent;
  os.files = &files;
  const korvane::platform::ScopedOs scope(os);
  Put(files, std::string(reinterpret_cast<const char*>(data), size));

  const std::vector<korvane::CrashLogEntry> entries = korvane::parseCrashLog(kLog);
  // Counted in the log as it is now: the filter undoes an encoded line feed.
  Require(entries.size() <= static_cast<std::size_t>(std::ranges::count(Log(files), '\n')) + 1);
  for (const korvane::CrashLogEntry& entry : entries) {
    Require(korvane::redactDiagnosticText(entry.msg) == entry.msg);
  }
  const std::string summary = korvane::summarise(entries);
  Require(!entries.empty() || summary == "Unknown crash - no log entries captured");
  return 0;
}
