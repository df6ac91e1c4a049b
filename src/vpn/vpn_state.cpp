#include "vpn/vpn_state.h"

#include "platform/no_destructor.h"

namespace korvane {

VpnState& vpn_state() {
  static NoDestructor<VpnState> state;
  return *state;
}

bool IsVpnConnected() {
  const VpnState& vpn = vpn_state();
  return vpn.is_running && vpn.service_id != 0;
}

std::string CurrentVpnState() {
  if (IsVpnConnected()) {
    return kVpnConnected;
  }
  const VpnState& vpn = vpn_state();
  if (vpn.op_depth < 1) {
    return kVpnDisconnected;
  }
  // A reader between the two writes of a scope sees no phase yet: that reads as disconnecting.
  return vpn.op_phase == kPhaseStarting ? kVpnConnecting : kVpnDisconnecting;
}

std::string CopyConfigText() {
  VpnState& vpn = vpn_state();
  const RecursiveMutexLock lock(vpn.lifecycle_mutex);
  return vpn.config_text;
}

}  // namespace korvane
