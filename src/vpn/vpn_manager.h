// vpn_manager.h: the process-wide owner of the tunnel's life, as the window host sees it.
//
// One per process, from first use to the process's end; its operations take no instance. The rest
// of its surface is the method channel (vpn_method_channel.h); its state stands in vpn_state.h.
#pragma once

#include <string>

#include "flutter_boundary/binary_messenger.h"
#include "vpn/engine_binding.h"
#include "vpn/vpn_event_stream.h"
#include "vpn/vpn_method_channel.h"

namespace korvane {

class VPNManager {
 public:
  // The window to which event wake-ups are posted. Window thread, before any connect.
  static void SetEventWindow(platform::WindowHandle window) { korvane::SetEventWindow(window); }

  // Opens the channels and loads the engine. Window thread, once per Flutter view; the messenger
  // outlives the channels' use.
  static void RegisterVpnChannels(flutter::BinaryMessenger* messenger) {
    korvane::RegisterVpnChannels(messenger);
  }

  // Sends what is queued. Window thread.
  static void DrainVpnEvents() { korvane::DrainVpnEvents(); }

  // The engine's version, or a word in its place. Any thread.
  static std::string ReadCoreVersion() { return korvane::ReadCoreVersion(); }
};

}  // namespace korvane
