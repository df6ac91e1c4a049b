// evidence_world.h: a machine of fakes on which one process after another keeps its evidence.
//
// Files and the registry live in memory and outlive the processes; clocks stand still. The process
// that is in force begins with Start(); a crash or a fault is brought about by Suffer().
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "platform/os.h"
#include "support/counting_os.h"
#include "support/fake_clock.h"
#include "support/fake_machine.h"
#include "support/memory_files.h"
#include "support/recording_error_stream.h"

namespace korvane::test {

// A performance counter that moves, so that each session gets an id of its own.
class CountingIdentifiers : public FakeIdentifiers {
 public:
  std::uint64_t PerformanceCounter() override { return ++counter_; }

 private:
  std::uint64_t counter_ = 0x1A0;
};

class EvidenceWorld {
 public:
  explicit EvidenceWorld(bool captures = true);

  // A new process; the former one is gone without a word.
  LibboxLogBuffer& Start();
  LibboxLogBuffer& evidence() { return *process_; }

  // Runs something on the present process under a plan. True when it came to its end; false when
  // the plan's stop ended the process.
  bool Suffer(CountingPlan plan, const std::function<void(LibboxLogBuffer&)>& work);
  // A plan that ends the process before the n-th changing operation.
  static CountingPlan CrashAt(std::size_t operation);
  // How many operations the last plan counted.
  [[nodiscard]] std::size_t counted() const { return counted_; }

  // Names below the evidence root, with forward slashes: "incidents/ID/manifest.json".
  void Put(const std::string& name, std::string_view bytes);
  std::string Get(const std::string& name);  // "<absent>" when there is none
  void Remove(const std::string& name);
  std::map<std::string, std::string> Snapshot();
  // The ids of all incidents, ascending; those that still have a sentinel.
  std::vector<std::string> Incidents();
  std::vector<std::string> Pending();

  void SwitchInRegistry(bool on);

  FakeClock clock;
  RecordingErrorStream errors;
  MemoryFiles files;
  CallJournal journal;
  FakeRegistry registry{journal};

 private:
  platform::Os OwnOs();
  std::filesystem::path PathOf(const std::string& name) const;
  void Collect(const std::filesystem::path& folder, const std::string& prefix,
               std::map<std::string, std::string>& found);

  FakeProcess fake_process_{journal};
  CountingIdentifiers identifiers_;
  platform::Os os_ = OwnOs();
  platform::ScopedOs in_force_{os_};
  std::unique_ptr<LibboxLogBuffer> process_;
  std::size_t counted_ = 0;
};

// The JSON text of a marker and of a record, as the host writes them.
std::string MarkerText(const std::string& session, const std::string& utc = "2026-01-02T03:04:05Z");
std::string RecordText(const std::map<std::string, std::string>& fields);

}  // namespace korvane::test
