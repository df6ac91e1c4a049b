#include "vpn/method_arguments.h"
#include "vpn/vpn_methods.h"
#include "vpn/vpn_state.h"

namespace korvane {

void MethodGetWindowsRuntimeDiagnostics(const Arguments& /*arguments*/, OwnedResult result) {
  result->Success(flutter::EncodableMap{});
}

void MethodGetAutoSelectorInfo(const Arguments& /*arguments*/, OwnedResult result) {
  if (!IsVpnConnected()) {
    result->Error("VPN_NOT_CONNECTED", "VPN must be connected to get auto selector info");
    return;
  }
  result->Error("API_UNAVAILABLE", "Clash API is disabled for this session");
}

void MethodPerformUrlTest(const Arguments& arguments, OwnedResult result) {
  if (arguments.GetIf<flutter::EncodableMap>() == nullptr) {
    result->Error("INVALID_ARGUMENTS", "Arguments required for performUrlTest");
    return;
  }
  if (!IsVpnConnected()) {
    result->Error("VPN_NOT_CONNECTED", "VPN must be connected to perform URL test");
    return;
  }
  result->Error("API_UNAVAILABLE", "Clash API is disabled for this session");
}

}  // namespace korvane
