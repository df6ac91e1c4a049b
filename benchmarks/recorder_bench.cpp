// What one line of the startup log costs its caller, the window's thread most of the time.
#include <benchmark/benchmark.h>

#include "recorder/line_format.h"
#include "recorder/startup_recorder.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"

namespace korvane {
namespace {

// Lock, line, wait for the log, size and write, and a rotation in about two thousand lines.
void OneEvent(benchmark::State& state) {
  StartupRecorder& recorder = StartupRecorder::instance();
  for (auto _ : state) {
    recorder.Event("mutex", {{"already_exists", false}});
  }
}
BENCHMARK(OneEvent);

// The same without the file: what the line itself costs.
void OneLine(benchmark::State& state) {
  flutter::EncodableMap fields = StartupRecorder::instance().Snapshot();
  fields["stage"] = "mutex";
  for (auto _ : state) {
    benchmark::DoNotOptimize(SerializeLine(fields));
  }
}
BENCHMARK(OneLine);

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const korvane::test::TemporaryFolder folder;
  const korvane::test::ScopedEnvironment data_home("XDG_DATA_HOME", folder.path().string());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
