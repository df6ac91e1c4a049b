// engine_service.h: creates and starts a service of the engine.
#pragma once

#include <cstdint>
#include <string>

#include "vpn/vpn_state.h"

namespace korvane {

struct EngineStart {
  std::uint64_t service_id = 0;  // 0 when the start failed
  std::string error;             // redacted, with what failed in front; empty on success
};

// Creates a service for the text and starts it. A service that was created but didn't start is
// closed again; when that close isn't confirmed, unconfirmed_close_latched is set. An exception
// that comes out of the engine is a failure like any other.
EngineStart CreateAndStartEngine(VpnState& vpn, const std::string& text)
    KORVANE_REQUIRES(vpn.lifecycle_mutex);

}  // namespace korvane
