// What one line of the startup log costs its caller, the window's thread most of the time, beside
// one bare write of such a line and beside a logging library inside a lock between processes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include "recorder/line_format.h"
#include "recorder/startup_recorder.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane::bench {
namespace {

// A file open for appending.
class AppendedFile {
 public:
  explicit AppendedFile(const std::filesystem::path& path)
      : descriptor_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}
  ~AppendedFile() { ::close(descriptor_); }
  AppendedFile(const AppendedFile&) = delete;
  AppendedFile& operator=(const AppendedFile&) = delete;

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

std::string SampleLine() {
  flutter::EncodableMap fields = {{"already_exists", false},
                                  {"ms", std::int64_t{12}},
                                  {"pid", std::int64_t{4711}},
                                  {"stage", "mutex"}};
  fields["run_id"] = StartupRecorder::instance().Snapshot()["run_id"];
  return SerializeLine(fields);
}

// Lock, line, wait for the log, size and write, and a rotation in about two thousand lines.
void OneEvent(benchmark::State& state) {
  StartupRecorder& recorder = StartupRecorder::instance();
  for (auto _ : state) {
    recorder.Event("mutex", {{"already_exists", false}});
  }
}
BENCHMARK(OneEvent)->Name("startup_line/ours");

void OneWrite(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const AppendedFile file(folder / "written.log");
  const std::string line = SampleLine();
  for (auto _ : state) {
    if (::write(file.descriptor(), line.data(), line.size()) < 0) {
      state.SkipWithError("not written");
    }
  }
}
BENCHMARK(OneWrite)->Name("startup_line/write");

// Each line is formatted and flushed inside a lock on the file that other processes see.
void OneSpdlogLine(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const AppendedFile lock(folder / "lock");
  const auto logger = std::make_shared<spdlog::logger>(
      "startup",
      std::make_shared<spdlog::sinks::basic_file_sink_mt>((folder / "library.log").string()));
  logger->set_pattern("%v");
  logger->flush_on(spdlog::level::info);
  for (auto _ : state) {
    ::flock(lock.descriptor(), LOCK_EX);
    logger->info(R"({{"already_exists":{},"ms":{},"pid":{},"run_id":"{}","stage":"{}"}})", false,
                 12, 4711, "f81d4fae-7dec-11d0-a765-00a0c91e6bf6", "mutex");
    ::flock(lock.descriptor(), LOCK_UN);
  }
}
BENCHMARK(OneSpdlogLine)->Name("startup_line/spdlog");

// Without the file: what the line itself costs.
void OneLine(benchmark::State& state) {
  flutter::EncodableMap fields = StartupRecorder::instance().Snapshot();
  fields["stage"] = "mutex";
  for (auto _ : state) {
    benchmark::DoNotOptimize(SerializeLine(fields));
  }
}
BENCHMARK(OneLine)->Name("startup_line/text");

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const korvane::test::TemporaryFolder folder;
  const korvane::test::ScopedEnvironment data_home("XDG_DATA_HOME", folder.path().string());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
