// What the evidence costs each time that it is looked at: the check of a clean log, beside a bare
// read of the same file, and the listing of a full archive, beside the sum of its reads. And what
// it costs to write: the four durable steps of a session, beside those of a database.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "allocations.h"
#include "diagnostics_evidence/libbox_log_buffer.h"
#include "diagnostics_evidence/privacy_migration.h"
#include "platform/os.h"
#include "samples.h"
#include "support/counting_os.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::bench {
namespace {

constexpr std::size_t kLogBytes = 8'000'000;
// Just below what the archive keeps.
constexpr std::size_t kArchiveBytes = 10'000'000;
constexpr int kIncidents = 3;

std::size_t ReadThrough(const std::filesystem::path& path) {
  constexpr std::uint64_t kPieceBytes = 65'536;
  std::size_t bytes = 0;
  auto file = platform::os().files->Open(path, platform::OpenMode::kRead);
  while (file) {
    const auto piece = platform::os().files->Read(file.value(), kPieceBytes);
    if (!piece || piece.value().empty()) {
      break;
    }
    bytes += piece.value().size();
  }
  return bytes;
}

void MigrateCleanLog(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const std::filesystem::path path = folder / "session.log";
  test::WriteBytes(path, CleanEngineLog(kLogBytes));
  const AllocationCount allocations;
  for (auto _ : state) {
    if (!migrateEvidenceFile(path.string())) {
      state.SkipWithError("could not be read");
    }
  }
  state.counters["peak_bytes"] = static_cast<double>(allocations.PeakBytes());
}
BENCHMARK(MigrateCleanLog)->Name("migrate_clean/ours");

void ReadCleanLog(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const std::filesystem::path path = folder / "session.log";
  test::WriteBytes(path, CleanEngineLog(kLogBytes));
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReadThrough(path));
  }
}
BENCHMARK(ReadCleanLog)->Name("migrate_clean/read");

// An archive as imports after crashes leave it.
class FullArchive {
 public:
  FullArchive() {
    LibboxLogBuffer().setWindowsDiagnosticsEnabled(true, nullptr);
    for (int incident = 0; incident < kIncidents; ++incident) {
      LibboxLogBuffer crashed;
      crashed.beginSession();
      test::WriteBytes(crashed.getLibboxLogPath(), CleanEngineLog(kArchiveBytes / kIncidents));
      LibboxLogBuffer().importPendingIncidents(nullptr);
    }
    evidence_ = std::make_unique<LibboxLogBuffer>();
  }

  LibboxLogBuffer& evidence() { return *evidence_; }
  std::vector<std::filesystem::path> Files() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(evidence_->incidentsDirectory())) {
      if (entry.is_regular_file()) {
        files.push_back(entry.path());
      }
    }
    return files;
  }

 private:
  test::TemporaryFolder folder_;
  test::ScopedEnvironment roaming_{"APPDATA", folder_.path().string()};
  test::ScopedEnvironment config_{"XDG_CONFIG_HOME", folder_.path().string()};
  std::unique_ptr<LibboxLogBuffer> evidence_;
};

void ListArchive(benchmark::State& state) {
  FullArchive archive;
  std::size_t rows = 0;
  std::string failure;
  for (auto _ : state) {
    rows = archive.evidence().getPendingIncidents(&failure).size();
  }
  if (rows != kIncidents) {
    state.SkipWithError(("rows: " + std::to_string(rows) + " " + failure).c_str());
  }
}
BENCHMARK(ListArchive)->Name("list_archive/ours");

void ReadArchive(benchmark::State& state) {
  const FullArchive archive;
  const std::vector<std::filesystem::path> files = archive.Files();
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const std::filesystem::path& file : files) {
      bytes += ReadThrough(file);
    }
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(ReadArchive)->Name("list_archive/read");

// Evidence that is switched on and has seen no session.
class FreshEvidence {
 public:
  FreshEvidence() { evidence_.setWindowsDiagnosticsEnabled(true, nullptr); }
  LibboxLogBuffer& evidence() { return evidence_; }

 private:
  test::TemporaryFolder folder_;
  test::ScopedEnvironment roaming_{"APPDATA", folder_.path().string()};
  test::ScopedEnvironment config_{"XDG_CONFIG_HOME", folder_.path().string()};
  LibboxLogBuffer evidence_;
};

// The four steps of a session that must be on the disk before it goes on.
void RunSession(LibboxLogBuffer& evidence) {
  evidence.beginSession();
  evidence.recordShutdownIntent("user_disconnect");
  evidence.recordCloseResult(evidence.currentSessionId(), true, 0, "");
  evidence.markCleanShutdown();
}

void WriteSession(benchmark::State& state) {
  std::unique_ptr<FreshEvidence> fresh;
  for (auto _ : state) {
    state.PauseTiming();
    fresh.reset();
    fresh = std::make_unique<FreshEvidence>();
    state.ResumeTiming();
    RunSession(fresh->evidence());
  }
}
BENCHMARK(WriteSession)->Name("evidence_write/ours")->UseRealTime();

// The same four as transactions of a database that is told to keep them (its rollback journal, and
// synchronous FULL, its default).
void WriteTransactions(benchmark::State& state) {
  constexpr const char* kSteps[] = {
      "INSERT INTO session VALUES ('20261123T100000Z-1', 'session_active', '2026-11-23T10:00:00Z')",
      "UPDATE session SET state = 'user_disconnect requested'",
      "UPDATE session SET state = 'user_disconnect close 0'", "DELETE FROM session"};
  const test::TemporaryFolder folder;
  sqlite3* database = nullptr;
  const auto run = [&](const char* sql) {
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  };
  bool good = sqlite3_open((folder / "evidence.db").string().c_str(), &database) == SQLITE_OK &&
              run("CREATE TABLE session (id TEXT, state TEXT, at TEXT)");
  for (auto _ : state) {
    for (const char* const step : kSteps) {
      good = good && run(step);
    }
  }
  if (!good) {
    state.SkipWithError("the database failed");
  }
  sqlite3_close(database);
}
BENCHMARK(WriteTransactions)->Name("evidence_write/sqlite")->UseRealTime();

// What the evidence of one connect and one stop does to the disk.
void OneSession(benchmark::State& state) {
  FullArchive archive;
  const test::CountingOs counting(platform::RealOs());
  const platform::ScopedOs in_force(counting.os());
  LibboxLogBuffer& evidence = archive.evidence();
  for (auto _ : state) {
    RunSession(evidence);
  }
  const std::vector<std::string> trace = counting.trace();
  const auto per_session = [&](std::string_view operation) {
    return static_cast<double>(std::count(trace.begin(), trace.end(), operation)) /
           static_cast<double>(state.iterations());
  };
  state.counters["flushes"] = per_session("Files.Flush");
  state.counters["renames"] = per_session("Files.Rename");
  state.counters["writes"] = per_session("Files.Write");
}
BENCHMARK(OneSession)->Name("evidence_session/ours")->Iterations(1);

}  // namespace
}  // namespace korvane::bench
