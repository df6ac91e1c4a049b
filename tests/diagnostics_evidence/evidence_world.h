// evidence_world.h: a machine of fakes on which one process after another keeps its evidence.
//
// Files and the registry live in memory and outlive the processes; clocks stand still. The process
// that is in force begins with Start(); a fault is brought about by Suffer(). Restart() stands
// still wherever the process may end, and `files` tells what each end would leave.
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
  LibboxLogBuffer& evidence() { return running_ ? running_->process : Start(); }

  // Runs something under a plan, on the present process or on a new one from its start. Gives how
  // many operations the plan has counted.
  using Work = std::function<void(LibboxLogBuffer&)>;
  std::size_t Suffer(CountingPlan plan, const Work& work);
  std::size_t Restart(CountingPlan plan, const Work& work);

  // Names below the evidence root, with forward slashes: "incidents/ID/manifest.json". What is put
  // there is flushed.
  void Put(const std::string& name, std::string_view bytes);
  std::string Get(const std::string& name);  // "<absent>" when there is none
  void Remove(const std::string& name);
  std::map<std::string, std::string> Snapshot();
  // The ids of all incidents, ascending; those that still have a sentinel.
  std::vector<std::string> Incidents();
  std::vector<std::string> Pending();

  void SwitchInRegistry(bool on);
  std::map<std::string, std::string>& environment() { return fake_process_.environment; }

  FakeClock clock;
  RecordingErrorStream errors;
  MemoryFiles files;
  CallJournal journal;
  FakeRegistry registry{journal};

 private:
  platform::Os OwnOs();
  std::filesystem::path PathOf(const std::string& name) const;

  // A process, with a decorator around it for the orders that are watched.
  struct Running {
    explicit Running(const platform::Os& os) : watched(os), in_force(watched.os()) {}

    CountingOs watched;
    platform::ScopedOs in_force;
    LibboxLogBuffer process;
  };

  FakeProcess fake_process_{journal};
  CountingIdentifiers identifiers_;
  platform::Os os_ = OwnOs();
  platform::ScopedOs in_force_{os_};
  std::unique_ptr<Running> running_;
};

// The JSON text of a marker and of a record, as the host writes them.
std::string MarkerText(const std::string& session, const std::string& utc = "2026-01-02T03:04:05Z");
std::string RecordText(const std::map<std::string, std::string>& fields);

}  // namespace korvane::test
