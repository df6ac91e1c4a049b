#include "launch/flutter_window.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "flutter_boundary/plugin_registrant.h"
#include "launch/core_channel.h"
#include "launch/instance_mutex.h"
#include "launch/session_messages.h"
#include "launch/window_messages.h"
#include "platform/os.h"
#include "recorder/startup_recorder.h"
#include "system/elevation_takeover.h"
#include "vpn/vpn_manager.h"

namespace korvane {

namespace {

using platform::os;

void Record(const char* stage) { StartupRecorder::instance().Event(stage); }

void RecordOsError(const char* stage, platform::ErrorCode error) {
  StartupRecorder::instance().Event(stage, {{"os_error", std::int64_t{error}}});
}

// Restores the window and brings it forward; a refusal of the foreground is recorded.
void BringForward(platform::WindowHandle window, const char* denied_stage) {
  os().windows->Show(window, platform::kShowRestore);
  if (!os().windows->SetForeground(window)) {
    Record(denied_stage);
  }
}

}  // namespace

FlutterWindow::FlutterWindow(const flutter::DartProject& project) : project_(project) {}

bool FlutterWindow::OnCreate() {
  if (!Win32Window::OnCreate()) {  // coverage: the base refuses nothing
    return false;
  }
  RegisterSessionNotification();
  if (!CreateEngine()) {
    return false;
  }
  flutter::FlutterEngine* const engine = flutter_controller_->engine();
  RecordSessionFacts(GetHandle());
  RegisterPlugins(engine);
  Record("plugins_registered");
  StartVpn();
  core_channel_ = OpenCoreChannel(engine->messenger());
  Record("core_channel_ready");
  SetChildContent(flutter_controller_->view()->GetNativeWindow());
  engine->SetNextFrameCallback([this] { FirstRasterGate(); });
  // Behind the callback, so that a frame is pending once the gate is in place.
  flutter_controller_->ForceRedraw();
  return true;
}

void FlutterWindow::RegisterSessionNotification() {
  const auto registered = os().windows->RegisterSessionNotification(GetHandle());
  if (registered) {
    wts_window_ = GetHandle();
  } else {
    RecordOsError("wts_registration_failed", registered.error());
  }
}

bool FlutterWindow::CreateEngine() {
  const platform::Rectangle area = GetClientArea();
  flutter_controller_ = std::make_unique<flutter::FlutterViewController>(
      area.right - area.left, area.bottom - area.top, project_);
  Record("engine_create");
  // coverage: a controller always has its engine object, with or without an engine behind it
  if (flutter_controller_->engine() == nullptr || flutter_controller_->view() == nullptr) {
    Record("engine_create_failed");
    return false;
  }
  return true;
}

// A window without a working tunnel is better than none.
void FlutterWindow::StartVpn() {
  try {
    VPNManager::SetEventWindow(GetHandle());
    SetTakeoverWindow(GetHandle());
    VPNManager::RegisterVpnChannels(flutter_controller_->engine()->messenger());
    platform::WriteErrorLine("VPN Manager initialized successfully!");
  } catch (const std::exception& error) {
    platform::WriteErrorLine(std::string("VPN Manager initialization failed: ") + error.what());
  }
}

void FlutterWindow::FirstRasterGate() {
  first_raster_seen_ = true;
  StartupRecorder::instance().RecordFirstRaster();
  if (!os().windows->SetWindowProperty(GetHandle(), kFirstRasterProperty, kPropertyValue)) {
    Record("first_raster_property_failed");
  }
  if (std::exchange(activation_latched_, false)) {
    BringForward(GetHandle(), "latched_foreground_denied");
  } else {
    Show();
  }
  Record("show_window");
}

platform::MessageResult FlutterWindow::MessageHandler(platform::WindowHandle window,
                                                      std::uint32_t message,
                                                      platform::MessageParameter parameter,
                                                      platform::MessageData data) {
  if (message == kWmAppSessionFacts) {
    session_facts_pending_ = false;
    RecordSessionFacts(window);
    return 0;
  }
  if (message == kWmAppActivateRequest) {
    HandleActivateRequest(window, parameter);
    return 0;
  }
  RecordSystemMessage(message, parameter, data);
  if (message == platform::kWmWtsSessionChange) {
    RequestSessionFacts(window);
  }
  KeepShutdownEvidence(message, parameter);
  // Kept on purpose: the engine sees the other two private messages first and passes them by.
  if (flutter_controller_) {
    if (const auto result =
            flutter_controller_->HandleTopLevelWindowProc(window, message, parameter, data)) {
      return *result;
    }
  }
  switch (message) {
    case kWmAppVpnDispatch:
      VPNManager::DrainVpnEvents();
      return 0;
    case kWmAppTakeoverExit:
      HandOver(window);
      return 0;  // not reached: the process is gone
    case platform::kWmFontChange:
      if (flutter_controller_) {
        flutter_controller_->engine()->ReloadSystemFonts();
      }
      [[fallthrough]];
    default:
      return Win32Window::MessageHandler(window, message, parameter, data);
  }
}

void FlutterWindow::HandleActivateRequest(platform::WindowHandle window,
                                          platform::MessageParameter from_pid) {
  StartupRecorder::instance().RecordActivateRequest(static_cast<std::int64_t>(from_pid),
                                                    first_raster_seen_);
  if (!first_raster_seen_) {
    activation_latched_ = true;  // the gate fulfils it
    return;
  }
  BringForward(window, "activation_foreground_denied");
  Record("activation_shown");
}

// One sampling for a burst of session changes.
void FlutterWindow::RequestSessionFacts(platform::WindowHandle window) {
  if (session_facts_pending_) {
    return;
  }
  session_facts_pending_ = true;
  const auto posted = os().windows->Post(window, kWmAppSessionFacts, 0, 0);
  if (!posted) {
    session_facts_pending_ = false;
    RecordOsError("session_facts_post_failed", posted.error());
  }
}

void FlutterWindow::RecordSessionFacts(platform::WindowHandle window) {
  StartupRecorder::instance().RecordSessionFacts(
      window, flutter_controller_ ? flutter_controller_->engine()->handle() : nullptr,
      static_cast<int>(project_.impeller_mode));
}

void FlutterWindow::HandOver(platform::WindowHandle window) {
  platform::WriteErrorLine(
      "[FlutterWindow] WM_APP_TAKEOVER_EXIT \u2014 handing over to elevated child");
  LibboxLogBuffer::instance().writeOsShutdownMarker();
  LibboxLogBuffer::instance().recordShutdownIntent("elevation_handoff");
  ReleaseInstanceMutex();
  static_cast<void>(os().windows->Destroy(window));
  os().process->Exit(0);
}

void FlutterWindow::OnDestroy() {
  if (wts_window_ != nullptr) {
    // The kept handle: GetHandle() is none by now.
    const auto unregistered =
        os().windows->UnregisterSessionNotification(std::exchange(wts_window_, nullptr));
    if (!unregistered) {
      RecordOsError("wts_unregistration_failed", unregistered.error());
    }
  }
  core_channel_.reset();
  flutter_controller_.reset();
  Win32Window::OnDestroy();
}

}  // namespace korvane
