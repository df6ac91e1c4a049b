// Arbitrary bytes as what lies in the evidence root: an import, a listing and a summary come to an
// end, and the import after the next one has nothing left to do.
//
// The input is cut at its zero bytes; each piece is one file.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "platform/os.h"
#include "silent_error_stream.h"
#include "support/fake_clock.h"
#include "support/memory_files.h"

namespace {

using korvane::LibboxLogBuffer;
using korvane::test::MemoryFiles;

// Diagnostics are on, and stay so.
class SwitchedOn : public korvane::platform::Registry {
 public:
  korvane::platform::Result<std::uint32_t> ReadDword(korvane::platform::RegistryHive,
                                                     const std::wstring&,
                                                     const std::wstring&) override {
    return std::uint32_t{1};
  }
  korvane::platform::Status WriteDword(korvane::platform::RegistryHive, const std::wstring&,
                                       const std::wstring&, std::uint32_t) override {
    return korvane::platform::Status::Ok();
  }
  korvane::platform::Status DeleteValue(korvane::platform::RegistryHive, const std::wstring&,
                                        const std::wstring&) override {
    return korvane::platform::Status::Ok();
  }
};

constexpr std::array<const char*, 12> kNames = {
    "libbox_session_active",
    "libbox_shutdown_record.json",
    "libbox_session.log",
    "crash-output.s1.log",
    "incidents/20240101T000000Z-s1/manifest.json",
    "incidents/20240101T000000Z-s1/pending",
    "incidents/20240101T000000Z-s1/crash-output.s1.log",
    "incidents/20240101T000000Z-s1/acknowledged",
    "incidents/retention.log",
    "incidents/retention_eviction_total",
    "libbox_clean_shutdown",
    "libbox_failed_start",
};

void Put(MemoryFiles& files, const std::filesystem::path& path, const std::string& bytes) {
  static_cast<void>(files.CreateDirectories(path.parent_path()));
  auto file = files.Open(path, korvane::platform::OpenMode::kWriteShared);
  static_cast<void>(files.Write(file.value(), bytes));
}

void Lay(MemoryFiles& files, const std::filesystem::path& root, const std::string& input) {
  std::size_t begin = 0;
  for (const char* name : kNames) {
    const std::size_t end = std::min(input.find('\0', begin), input.size());
    if (end > begin) {
      Put(files, root / name, input.substr(begin, end - begin));
    }
    begin = std::min(end + 1, input.size());
  }
}

std::map<std::filesystem::path, std::string> Contents(MemoryFiles& files,
                                                      const std::filesystem::path& folder) {
  std::map<std::filesystem::path, std::string> contents;
  const auto entries = files.List(folder);
  for (const auto& entry :
       entries ? entries.value() : std::vector<korvane::platform::DirectoryEntry>()) {
    const auto path = folder / entry.name;
    if (entry.kind == korvane::platform::EntryKind::kDirectory) {
      contents.merge(Contents(files, path));
    } else {
      auto file = files.Open(path, korvane::platform::OpenMode::kRead);
      contents[path] = files.Read(file.value(), 1U << 20U).value();
    }
  }
  return contents;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korvane::fuzz::SilentErrorStream silent;
  SwitchedOn registry;
  MemoryFiles files;
  korvane::test::FakeClock clock;
  korvane::platform::Os os = korvane::platform::RealOs();
  os.error_stream = &silent;
  os.registry = &registry;
  os.files = &files;
  os.clocks = &clock;
  const korvane::platform::ScopedOs scope(os);
  const std::filesystem::path root = LibboxLogBuffer().baseDirectory();
  Lay(files, root, std::string(reinterpret_cast<const char*>(data), size));

  LibboxLogBuffer().importPendingIncidents(nullptr);
  LibboxLogBuffer().importPendingIncidents(nullptr);
  for (const korvane::IncidentRow& row : LibboxLogBuffer().getPendingIncidents(nullptr)) {
    LibboxLogBuffer().acknowledgeIncident(row.id, row.reimport_count);
  }
  LibboxLogBuffer().checkForCrashLogs();
  const auto settled = Contents(files, root);
  LibboxLogBuffer third;
  // A record that can't be cleaned stops each import, and then nothing has changed either.
  const bool done = third.importPendingIncidents(nullptr);
  if (done && Contents(files, root) != settled) {
    std::abort();
  }
  return 0;
}
