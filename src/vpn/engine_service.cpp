#include "vpn/engine_service.h"

#include "platform/os.h"
#include "vpn/engine_binding.h"
#include "vpn/exception_text.h"

namespace korvane {

namespace {

using platform::WriteErrorLine;

EngineStart Failed(const std::string& what, const std::string& text) {
  return {.service_id = 0, .error = what + text};
}

// What the engine says of its failure at the create and start steps.
std::string EngineErrorOrUnknown(const VpnState& vpn) {
  return ReadEngineError(vpn.engine).value_or("Unknown error");
}

// The service exists although it doesn't run.
void CloseFailedService(VpnState& vpn, std::uint64_t service_id)
    KORVANE_REQUIRES(vpn.lifecycle_mutex) {
  if (vpn.engine.singbox_close_service == nullptr) {
    return;
  }
  const std::int32_t code = vpn.engine.singbox_close_service(service_id);
  if (code != 0) {
    vpn.unconfirmed_close_latched = true;
    WriteErrorLine("[DIAG] failed-start cleanup close rc=" + std::to_string(code) +
                   " \u2014 unconfirmed close latched");
  }
}

EngineStart StartService(VpnState& vpn, std::uint64_t service_id)
    KORVANE_REQUIRES(vpn.lifecycle_mutex) {
  std::string error;
  try {
    const std::int32_t code = vpn.engine.singbox_start_service(service_id);
    if (code == 0) {
      return {.service_id = service_id, .error = {}};
    }
    // Read before the cleanup close, which has an error of its own.
    error = EngineErrorOrUnknown(vpn);
    WriteErrorLine("[ERROR] Failed to start sing-box service, error code: " + std::to_string(code));
    WriteErrorLine("[ERROR] sing-box error: " + error);
  } catch (...) {
    const std::string text = RedactedExceptionText();
    CloseFailedService(vpn, service_id);
    WriteErrorLine("[ERROR] Exception in singbox_start_service: " + text);
    return Failed("Exception in singbox_start_service: ", text);
  }
  CloseFailedService(vpn, service_id);
  return Failed("Failed to start sing-box service: ", error);
}

}  // namespace

EngineStart CreateAndStartEngine(VpnState& vpn, const std::string& text) {
  std::uint64_t service_id = 0;
  try {
    service_id = vpn.engine.singbox_new_service(text.c_str());
    if (service_id == 0) {
      const std::string error = EngineErrorOrUnknown(vpn);
      WriteErrorLine("[ERROR] Failed to create sing-box service - service_id is 0");
      WriteErrorLine("[ERROR] DLL Parser Error: " + error);
      return Failed("Failed to create sing-box service: ", error);
    }
  } catch (...) {
    const std::string exception_text = RedactedExceptionText();
    WriteErrorLine("[ERROR] Exception in singbox_new_service: " + exception_text);
    return Failed("Exception in singbox_new_service: ", exception_text);
  }
  return StartService(vpn, service_id);
}

}  // namespace korvane
