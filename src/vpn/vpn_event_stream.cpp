#include "vpn/vpn_event_stream.h"

#include <utility>

#include "diagnostics_evidence/libbox_log_buffer.h"
#include "flutter_boundary/standard_method_codec.h"
#include "flutter_boundary/utf8.h"
#include "platform/os.h"
#include "vpn/decisions.h"

namespace korvane {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using platform::os;

constexpr char kEventChannelName[] = "com.sundrelak.korvane/vpn_events";

EncodableValue Text(const std::string& text) { return EncodableValue(EnsureUtf8(text)); }

bool DiagnosticsEnabled() { return LibboxLogBuffer::instance().getWindowsDiagnosticsEnabled(); }

void WakeEventWindow() {
  if (platform::WindowHandle window = vpn_state().event_window) {
    static_cast<void>(os().windows->Post(window, kWmAppVpnDispatch, 0, 0));
    return;
  }
  platform::WriteErrorLine("[VPNManager] Warning: No window handle, attempting direct dispatch");
  DrainVpnEvents();
}

void CallInterface(const char* method, EncodableValue arguments) {
  if (const auto& channel = vpn_state().method_channel) {
    channel->InvokeMethod(method, std::move(arguments));
  }
}

void SendError(const NativeErrorEvent& event) {
  CallInterface("onVPNError", EncodableMap{
                                  {"code", Text(event.code)},
                                  {"message", Text(event.message)},
                                  {"recoverable", event.recoverable},
                                  {"timestamp", event.timestamp},
                              });
}

void SendState(const std::string& word) {
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.sink_mutex);
    if (vpn.event_sink) {
      vpn.event_sink->Success(EncodableMap{{"status", Text(word)}});
    }
  }
  CallInterface("onVPNStateChanged", Text(word));
}

void SendDecision(const VpnDiagnosticEvent& event) {
  // coverage: only where the switch is changed between the queue and here
  if (!DiagnosticsEnabled()) {
    return;
  }
  CallInterface("onVPNDiagnostic", EncodableMap{
                                       {"component", Text(event.component)},
                                       {"decision", Text(event.decision)},
                                       {"is_running", event.is_running},
                                       {"service_active", event.service_active},
                                       {"op_depth", event.op_depth},
                                       {"op_phase", Text(event.op_phase)},
                                       {"timestamp", event.timestamp},
                                   });
}

}  // namespace

void SetEventWindow(platform::WindowHandle window) { vpn_state().event_window = window; }

void PostVpnState(const std::string& word) {
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.queue_mutex);
    vpn.pending_states.push_back(word);
  }
  WakeEventWindow();
}

void PostNativeError(const NativeErrorEvent& event) {
  LibboxLogBuffer::instance().recordBreadcrumb("native_error " + event.message,
                                               /*throttled=*/false);
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.queue_mutex);
    vpn.last_native_error.Store(event);
    vpn.pending_errors.push_back(event);
  }
  WakeEventWindow();
}

void PostNativeError(const std::string& code, const std::string& message) {
  PostNativeError({.code = code,
                   .message = message,
                   .recoverable = false,
                   .timestamp = os().clocks->UnixMilliseconds()});
}

void PostVpnDiagnostic(VpnDiagnosticEvent event) {
  if (!DiagnosticsEnabled()) {
    return;
  }
  event.timestamp = os().clocks->UnixMilliseconds();
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.queue_mutex);
    // Once more, so that no record outlives a change of the switch.
    // coverage: only where the switch is changed between the two questions
    if (!DiagnosticsEnabled()) {
      return;
    }
    vpn.pending_diagnostics.push_back(std::move(event));
  }
  WakeEventWindow();
}

void ForgetPendingDiagnostics() {
  VpnState& vpn = vpn_state();
  const MutexLock lock(vpn.queue_mutex);
  vpn.pending_diagnostics.clear();
}

void DrainVpnEvents() {
  std::deque<NativeErrorEvent> errors;
  std::deque<std::string> states;
  std::deque<VpnDiagnosticEvent> decisions;
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.queue_mutex);
    errors.swap(vpn.pending_errors);
    states.swap(vpn.pending_states);
    decisions.swap(vpn.pending_diagnostics);
  }
  for (const NativeErrorEvent& error : errors) {
    SendError(error);
  }
  for (const std::string& word : states) {
    SendState(word);
  }
  for (const VpnDiagnosticEvent& decision : decisions) {
    SendDecision(decision);
  }
}

void OpenVpnEventChannel(flutter::BinaryMessenger* messenger) {
  auto channel = std::make_unique<flutter::EventChannel<>>(
      messenger, kEventChannelName, &flutter::StandardMethodCodec::GetInstance());
  channel->SetStreamHandler(std::make_unique<VPNEventStreamHandler>());
  vpn_state().event_channel = std::move(channel);
}

std::optional<flutter::StreamHandlerError<EncodableValue>> VPNEventStreamHandler::OnListenInternal(
    const EncodableValue* /*arguments*/, std::unique_ptr<flutter::EventSink<EncodableValue>> sink) {
  VpnState& vpn = vpn_state();
  {
    const MutexLock lock(vpn.sink_mutex);
    vpn.event_sink = std::move(sink);
  }
  const std::string word = CurrentVpnState();
  DecideRefreshState("OnListenInternal", word);
  PostVpnState(word);
  return std::nullopt;
}

std::optional<flutter::StreamHandlerError<EncodableValue>> VPNEventStreamHandler::OnCancelInternal(
    const EncodableValue* /*arguments*/) {
  VpnState& vpn = vpn_state();
  const MutexLock lock(vpn.sink_mutex);
  vpn.event_sink.reset();
  return std::nullopt;
}

}  // namespace korvane
