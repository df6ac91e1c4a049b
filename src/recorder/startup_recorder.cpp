#include "recorder/startup_recorder.h"

#include <utility>

#include "platform/no_destructor.h"
#include "platform/os.h"
#include "recorder/line_format.h"
#include "recorder/log_file.h"
#include "recorder/session_facts.h"

namespace korvane {

namespace {

constexpr std::int64_t kNanosecondsPerMs = 1'000'000;

// Closes the recorder's files when the process ends. The recorder itself is never destroyed.
class CloseAtExit {
 public:
  explicit CloseAtExit(StartupRecorder& recorder) : recorder_(recorder) {}
  ~CloseAtExit() { recorder_.Close(); }
  CloseAtExit(const CloseAtExit&) = delete;
  CloseAtExit& operator=(const CloseAtExit&) = delete;

 private:
  StartupRecorder& recorder_;
};

struct RunId {
  std::string text = "guid_unavailable";
  std::string_view failure;  // the event's stage; empty when there is an id
  flutter::EncodableMap failure_fields;
};

RunId MakeRunId() {
  RunId run_id;
  platform::Identifiers& identifiers = *platform::os().identifiers;
  const auto guid = identifiers.CreateGuid();
  if (!guid) {
    run_id.failure = "guid_creation_failed";
    const auto hresult = static_cast<std::int32_t>(guid.error());
    run_id.failure_fields = {{"hresult", std::int64_t{hresult}}};
    return run_id;
  }
  auto text = identifiers.FormatGuid(guid.value());
  if (!text) {
    run_id.failure = "guid_format_failed";
    return run_id;
  }
  run_id.text = std::move(*text);
  return run_id;
}

flutter::EncodableMap InitialSnapshot(const std::string& run_id) {
  const flutter::EncodableValue null;
  return {
      {"run_id", run_id},
      {"pid", std::int64_t{platform::os().process->Id()}},
      {"ms_to_first_raster", null},
      {"remote_session", platform::os().windows->RemoteSession()},
      {"gpu_adapter", "engine_not_created"},
      {"renderer", "not_sampled"},
      {"last_display_event", null},
      {"activated_before_first_raster", false},
      {"update",
       flutter::EncodableMap{
           {"last_attempt_at", null}, {"last_successful_check_at", null}, {"last_result", null}}},
  };
}

}  // namespace

StartupRecorder& StartupRecorder::instance() {
  static NoDestructor<StartupRecorder> recorder;
  static const CloseAtExit close_at_exit(*recorder);
  return *recorder;
}

StartupRecorder::StartupRecorder() noexcept
    : start_ns_(platform::os().clocks->SteadyNanoseconds()) {
  try {
    Start();
  } catch (...) {
    // No memory. The recorder lives on with what it has; the start matters more than its journal.
  }
}

StartupRecorder::~StartupRecorder() { Close(); }

void StartupRecorder::Start() {
  RunId run_id = MakeRunId();
  std::string init_line;
  {
    MutexLock lock(mutex_);
    snapshot_ = InitialSnapshot(run_id.text);
    every_line_ = {{"pid", snapshot_["pid"]}, {"run_id", snapshot_["run_id"]}};
    init_line = Build("recorder_init", {}, ElapsedMs()).line;
  }
  auto log = std::make_shared<LogFile>(init_line);
  {
    MutexLock lock(mutex_);
    log_ = std::move(log);
  }
  Record("process_start",
         [](const flutter::EncodableMap& snapshot, std::int64_t) { return snapshot; });
  if (!run_id.failure.empty()) {
    Event(run_id.failure, std::move(run_id.failure_fields));
  }
}

void StartupRecorder::Event(std::string_view stage, flutter::EncodableMap fields) noexcept {
  Record(stage,
         [&fields](const flutter::EncodableMap&, std::int64_t) { return std::move(fields); });
}

void StartupRecorder::RecordSessionFacts(platform::WindowHandle window,
                                         FlutterDesktopEngineRef engine,
                                         int impeller_mode) noexcept {
  try {
    SessionFacts sampled = SampleSessionFacts(window, engine, impeller_mode);
    for (SamplingFailure& failure : sampled.failures) {
      Event(failure.stage, std::move(failure.fields));
    }
    Record("session_facts", [&sampled](flutter::EncodableMap& snapshot, std::int64_t) {
      for (const auto& [key, fact] : sampled.facts) {
        snapshot[key] = fact;
      }
      return std::move(sampled.facts);
    });
  } catch (...) {
    // No memory to sample with.
  }
}

void StartupRecorder::RecordFirstRaster() noexcept {
  Record("first_raster_callback", [](flutter::EncodableMap& snapshot, std::int64_t ms) {
    snapshot["ms_to_first_raster"] = ms;
    return snapshot;
  });
}

void StartupRecorder::RecordActivateRequest(std::int64_t from_pid,
                                            bool first_raster_seen) noexcept {
  Record("activate_request", [=](flutter::EncodableMap& snapshot, std::int64_t) {
    if (!first_raster_seen) {
      snapshot["activated_before_first_raster"] = true;
    }
    return flutter::EncodableMap{{"from_pid", from_pid},
                                 {"first_raster", first_raster_seen},
                                 {"action", first_raster_seen ? "restore" : "latched"}};
  });
}

void StartupRecorder::RecordDisplayEvent(std::string_view stage,
                                         flutter::EncodableMap fields) noexcept {
  Record(stage, [&](flutter::EncodableMap& snapshot, std::int64_t ms) {
    fields["event"] = std::string(stage);
    fields["ms"] = ms;
    snapshot["last_display_event"] = fields;
    return flutter::EncodableMap{{"last_display_event", std::move(fields)}};
  });
}

void StartupRecorder::RecordUpdateResult(flutter::EncodableMap update) noexcept {
  Record("update_result", [&update](flutter::EncodableMap& snapshot, std::int64_t) {
    snapshot["update"] = update;
    return flutter::EncodableMap{{"update", std::move(update)}};
  });
}

flutter::EncodableMap StartupRecorder::Snapshot() noexcept {
  try {
    MutexLock lock(mutex_);
    return snapshot_;
  } catch (...) {
    return {};
  }
}

void StartupRecorder::Close() noexcept {
  try {
    std::shared_ptr<LogFile> log;
    std::string line;
    {
      MutexLock lock(mutex_);
      line = Build("recorder_close", {}, ElapsedMs()).line;
      log = std::exchange(log_, nullptr);
    }
    if (log != nullptr) {
      log->SetClosingLine(std::move(line));
    }
  } catch (...) {
    // No memory for the line: the system closes the files with the process.
  }
}

template <typename Change>
void StartupRecorder::Record(std::string_view stage, const Change& change) noexcept {
  try {
    Outgoing outgoing;
    {
      MutexLock lock(mutex_);
      const std::int64_t ms = ElapsedMs();
      outgoing = Build(stage, change(snapshot_, ms), ms);
    }
    if (outgoing.log != nullptr) {
      outgoing.log->Write(outgoing.line);
    } else {
      ReportFailure(outgoing.line, "log_unavailable", 0);
    }
  } catch (...) {
    // No memory for the line: it is lost, like one that the log had no time for.
  }
}

StartupRecorder::Outgoing StartupRecorder::Build(std::string_view stage,
                                                 const flutter::EncodableMap& fields,
                                                 std::int64_t ms) {
  every_line_["ms"] = ms;
  every_line_["stage"] = std::string(stage);
  return {.line = SerializeLine(fields, every_line_), .log = log_};
}

std::int64_t StartupRecorder::ElapsedMs() const {
  return (platform::os().clocks->SteadyNanoseconds() - start_ns_) / kNanosecondsPerMs;
}

}  // namespace korvane
