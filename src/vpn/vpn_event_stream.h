// vpn_event_stream.h: state words, errors and decisions, from any thread to the interface.
//
// A poster queues its record and wakes the window thread (kWmAppVpnDispatch); DrainVpnEvents sends
// what is queued, errors first, then state words, then decisions, so that an error always reaches
// the interface before the "vpn_disconnected" that follows from it. Each word goes out twice: as an
// event of the stream, if there is a listener, and as the call `onVPNStateChanged`.
// The queues have no bound and are no buffer for a listener: a new one gets the state that is true
// now. While no window is known, posting dispatches at once on the calling thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "flutter_boundary/stream_handler.h"
#include "vpn/vpn_state.h"

namespace korvane {

// The private message that wakes the window thread; both parameters are 0.
inline constexpr std::uint32_t kWmAppVpnDispatch = platform::kWmApp + 1;

void SetEventWindow(platform::WindowHandle window);

// Any thread. The word is queued; the interface gets it from the window thread.
void PostVpnState(const std::string& word);
// Any thread. Also kept as the last native error, and written to the session log.
void PostNativeError(const NativeErrorEvent& event);
// The same with the time now and `recoverable` false, as every error of this release.
void PostNativeError(const std::string& code, const std::string& message);
// Any thread. Dropped while diagnostics are off; the record's time is set here.
void PostVpnDiagnostic(VpnDiagnosticEvent event);
// Drops decisions that are still queued.
void ForgetPendingDiagnostics();

// Window thread. Sends everything that was queued before the call.
void DrainVpnEvents();

// Makes the event channel on the messenger, with its handler.
void OpenVpnEventChannel(flutter::BinaryMessenger* messenger);

// The handler of the event channel; the sink itself belongs to VpnState.
class VPNEventStreamHandler : public flutter::StreamHandler<flutter::EncodableValue> {
 public:
  ~VPNEventStreamHandler() override = default;

 protected:
  std::optional<flutter::StreamHandlerError<flutter::EncodableValue>> OnListenInternal(
      const flutter::EncodableValue* arguments,
      std::unique_ptr<flutter::EventSink<flutter::EncodableValue>> sink) override;
  std::optional<flutter::StreamHandlerError<flutter::EncodableValue>> OnCancelInternal(
      const flutter::EncodableValue* arguments) override;
};

}  // namespace korvane
