// startup_recorder.h: the journal of how a start went, one JSON line per event in startup.log.
//
// One recorder per process, made at the first call of instance(). It keeps a snapshot of the run
// (who it is, what it runs on, when its first frame came) and appends a line for each event to a
// log that all processes of the user share (log_file.h). What each stage and field means stands in
// docs/startup-log.md.
//
// It never stops a start: no operation throws, none waits longer than the log's bound of 100 ms,
// and a failure of the journal goes to the debugger and to the error stream and is then forgotten.
//
// Any thread. One lock guards the snapshot and the building of a line and is released before the
// line is written, so lines of one process may stand in the file in another order than their `ms`.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/mutex.h"
#include "platform/window_system.h"

namespace korvane {

class LogFile;

class StartupRecorder {
 public:
  // The recorder of this process. It stays usable to the very end, since detached workers may
  // outlive main; when the process exits its files are closed, and a later line is reported as
  // `log_unavailable`.
  static StartupRecorder& instance();

  // Takes the start time, opens the log and writes `process_start`. The host has instance() alone;
  // a test makes recorders of its own.
  StartupRecorder() noexcept;
  ~StartupRecorder();
  StartupRecorder(const StartupRecorder&) = delete;
  StartupRecorder& operator=(const StartupRecorder&) = delete;

  // Writes one line. A field named `ms`, `pid`, `run_id` or `stage` is replaced by the recorder's.
  void Event(std::string_view stage, flutter::EncodableMap fields = {}) noexcept
      KORVANE_EXCLUDES(mutex_);

  // Samples what the run draws with and where, and writes `session_facts`, behind an event for each
  // fact that could not be had. Without a window the system's DPI is taken; an engine must be
  // alive. Impeller modes: 1 enabled, 2 disabled, anything else the engine's default.
  void RecordSessionFacts(platform::WindowHandle window, FlutterDesktopEngineRef engine,
                          int impeller_mode) noexcept KORVANE_EXCLUDES(mutex_);

  // The engine drew its first frame: the one writer of `ms_to_first_raster`.
  void RecordFirstRaster() noexcept KORVANE_EXCLUDES(mutex_);

  // Another process asked for the window. Before the first frame that is remembered as
  // `activated_before_first_raster`, which nothing takes back.
  void RecordActivateRequest(std::int64_t from_pid, bool first_raster_seen) noexcept
      KORVANE_EXCLUDES(mutex_);

  // A message about displays or the session. The fields, with `event` and `ms`, replace the former
  // `last_display_event` altogether.
  void RecordDisplayEvent(std::string_view stage, flutter::EncodableMap fields) noexcept
      KORVANE_EXCLUDES(mutex_);

  // What the interface's update check said: a map of `last_attempt_at`, `last_successful_check_at`
  // and `last_result`, which the caller has checked.
  void RecordUpdateResult(flutter::EncodableMap update) noexcept KORVANE_EXCLUDES(mutex_);

  // A copy of the snapshot; empty when there is no memory for one.
  flutter::EncodableMap Snapshot() noexcept KORVANE_EXCLUDES(mutex_);

  // Closes the log, once a line that is just being written is out. Further calls do nothing.
  void Close() noexcept KORVANE_EXCLUDES(mutex_);

 private:
  // A built line and the log that it goes to, which it keeps open until it is written.
  struct Outgoing {
    std::string line;
    std::shared_ptr<LogFile> log;
  };

  void Start();
  Outgoing Build(std::string_view stage, const flutter::EncodableMap& fields, std::int64_t ms)
      KORVANE_REQUIRES(mutex_);
  std::int64_t ElapsedMs() const;

  // Under the lock, lets `change` alter the snapshot and takes the line's fields from it; then
  // writes the line. `change` gets the snapshot and the line's `ms`.
  template <typename Change>
  void Record(std::string_view stage, const Change& change) noexcept KORVANE_EXCLUDES(mutex_);

  const std::int64_t start_ns_;
  Mutex mutex_;
  flutter::EncodableMap snapshot_ KORVANE_GUARDED_BY(mutex_);
  // The four members that a line has whatever its event: `ms`, `pid`, `run_id`, `stage`.
  flutter::EncodableMap every_line_ KORVANE_GUARDED_BY(mutex_);
  std::shared_ptr<LogFile> log_ KORVANE_GUARDED_BY(mutex_);  // none once closed
};

}  // namespace korvane
