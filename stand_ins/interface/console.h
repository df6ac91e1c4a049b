// console.h: the stand-in as a whole: it plays the input lines to the host and tells what came of
// them.
//
// The reader thread is started by the view controller, which starts the engine. It parses lines and
// waits; whatever calls into the host it queues as a task of the window thread (window_thread.h),
// in the order of the lines. At the end of the input it waits for the replies that are open, and
// closes the window as a user does. Exit code 3 says that a wait ran out or that the input can't be
// had.
//
// When the first frame is drawn:
//
//   * KORVANE_CONSOLE_FRAMES=manual   by {"frame":true} alone
//   * input from a file               when the host asked for it and the script has come to a line
//                                     other than window, engine, fail and frame, or to
//                                     {"frame":true}
//   * otherwise                       when the host asked for it
//
// KORVANE_CONSOLE_FAIL names what fails, as {"fail":"view_controller"} or as words with commas:
// engine, view_controller, view, graphics_adapter, adapter_description, adapter_encoding.
// KORVANE_CONSOLE_DPI is the DPI of every monitor. KORVANE_CONSOLE_END_MS is how long the end of
// the input waits for replies, and then for the window to go; 30 seconds when unset.
//
// Beside the lines that the reference names: {"console_error":".."} for a bad line,
// {"violation":".."} when the host breaks a rule of the library's interface, {"malformed":"why",
// "hex":".."} for bytes that a Dart decoder refuses, {"engine":{..}} with what the engine was
// created from, {"engine_consumed":536}, {"plugin_registered":".."} when a plug-in library got its
// registrar.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "interface/dart_side.h"
#include "interface/handles.h"
#include "interface/input_line.h"
#include "interface/journal.h"
#include "interface/system.h"
#include "platform/mutex.h"

namespace korvane::stand_in {

class Console {
 public:
  // The process's console.
  static Console& Get();

  Console();

  Journal& journal() { return journal_; }
  DartSide& dart() { return dart_; }

  // Whether the named thing is to fail. Any thread.
  bool Fails(const std::string& what) KORVANE_EXCLUDES(mutex_);

  // The engine runs: this is the window thread, and the script begins. Window thread.
  void EngineStarted(FlutterDesktopEngine& engine);
  // The engine is about to go. Window thread.
  void EngineEnded();

  bool OnWindowThread() const;

  // The host asked for a frame. Window thread.
  void FrameRequested() KORVANE_EXCLUDES(mutex_);

  // Whether the engine consumes this message of the host's window. Window thread.
  bool Consumes(std::uint32_t message);

  // The host broke a rule of the library's interface.
  void Violation(const std::string& what);

 private:
  void ReadLines();
  void ReadLine(std::string_view text);
  void EndOfInput();

  void Execute(const SendLine& line);
  void Execute(const WaitLine& line);
  void Execute(const FrameLine& line);
  void Execute(const WindowLine& line);
  void Execute(const ConsumeLine& line);
  void Execute(const FailLine& line) KORVANE_EXCLUDES(mutex_);
  void Execute(const SleepLine& line);
  void Execute(const MeasureLine& line);
  void Execute(const CloseLine& line);
  [[noreturn]] void Execute(const AbortLine& line);

  void ReleaseFrames() KORVANE_EXCLUDES(mutex_);
  void DrawFrame();
  void Deliver(DartSide::ResponseHandle handle, const SendLine& line);
  void Complain(const std::string& what);
  [[noreturn]] void RunOut(const Json& what);

  Journal journal_;
  DartSide dart_;
  const bool manual_frames_;
  const std::chrono::milliseconds end_of_input_wait_;

  // Window thread only.
  FlutterDesktopEngine* engine_ = nullptr;
  std::set<std::uint32_t> consumed_;

  std::atomic<std::thread::id> window_thread_;

  Mutex mutex_;
  std::condition_variable_any ended_;
  std::set<std::string> failing_ KORVANE_GUARDED_BY(mutex_);
  bool running_ KORVANE_GUARDED_BY(mutex_) = false;
  bool frames_released_ KORVANE_GUARDED_BY(mutex_) = false;
  bool frame_due_ KORVANE_GUARDED_BY(mutex_) = false;

  // Reader thread only.
  bool closing_ = false;
  bool last_was_wait_ = false;
  // What messages point at. It stays, since nobody says when it was read last.
  std::list<std::wstring> texts_;
  std::list<std::array<std::int32_t, 4>> rectangles_;
};

}  // namespace korvane::stand_in
