// flutter_window.h: the application's window, with the engine in it.
//
// Creates the engine and what hangs on it, stays hidden until the first frame has been drawn,
// answers the private messages (window_messages.h), and turns messages about power, displays, the
// session and the shutdown into lines of the startup log and evidence of why the process goes away.
// There is no timer and no fallback: a window whose engine never draws is never shown, and the log
// tells how far the start came.
//
//   first_raster_seen_      set by the first-raster gate, never cleared
//   activation_latched_     set by a request before the first frame, cleared by the gate
//   session_facts_pending_  set by a session change, cleared by kWmAppSessionFacts or a failed post
//
// Everything runs on the window's thread; other threads reach it through Post alone.
#pragma once

#include <memory>

#include "flutter_boundary/dart_project.h"
#include "flutter_boundary/flutter_view_controller.h"
#include "flutter_boundary/method_channel.h"
#include "launch/win32_window.h"

namespace korvane {

class FlutterWindow : public Win32Window {
 public:
  explicit FlutterWindow(const flutter::DartProject& project);
  // Kept on purpose: does nothing of its own. After a failed Create the members end here, while
  // OnDestroy isn't reached any more.
  ~FlutterWindow() override = default;

 protected:
  platform::MessageResult MessageHandler(platform::WindowHandle window, std::uint32_t message,
                                         platform::MessageParameter parameter,
                                         platform::MessageData data) override;
  // False when the engine could not be created. Everything else that fails is recorded, and the
  // window comes up without it. Cleans nothing up after its own failure.
  bool OnCreate() override;
  void OnDestroy() override;

 private:
  void RegisterSessionNotification();
  bool CreateEngine();
  void StartVpn();
  void FirstRasterGate();

  void HandleActivateRequest(platform::WindowHandle window, platform::MessageParameter from_pid);
  void RequestSessionFacts(platform::WindowHandle window);
  void RecordSessionFacts(platform::WindowHandle window);
  // Doesn't return.
  static void HandOver(platform::WindowHandle window);

  flutter::DartProject project_;
  std::unique_ptr<flutter::FlutterViewController> flutter_controller_;
  bool session_facts_pending_ = false;
  bool first_raster_seen_ = false;
  bool activation_latched_ = false;
  platform::WindowHandle wts_window_ = nullptr;  // the one registered for session notifications
  std::unique_ptr<flutter::MethodChannel<>> core_channel_;
};

}  // namespace korvane
