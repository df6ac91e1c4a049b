// session_facts.h: what a run draws with and where: adapter, renderer, displays, density, session.
//
// Sampling always gives all six facts. One that couldn't be had holds a word that says why, or 0,
// and comes with an event that says more. Nothing here writes to the log. Called on the window
// thread, where the engine may be asked.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "flutter_boundary/encodable_value.h"
#include "flutter_boundary/flutter_windows_abi.h"
#include "platform/appearance.h"
#include "platform/window_system.h"

namespace korvane {

// The event about a fact that couldn't be had.
struct SamplingFailure {
  std::string_view stage;
  flutter::EncodableMap fields;
};

struct SessionFacts {
  // `remote_session`, `gpu_adapter`, `renderer`, `display_count`, `dpi`, `dpi_source`.
  flutter::EncodableMap facts;
  std::vector<SamplingFailure> failures;  // in the order of sampling
};

// Window and engine may each be none.
SessionFacts SampleSessionFacts(platform::WindowHandle window, FlutterDesktopEngineRef engine,
                                int impeller_mode);

// "impeller_enabled" for 1, "impeller_disabled" for 2, "impeller_default" for anything else.
std::string_view RendererName(int impeller_mode);

struct DpiSample {
  std::uint32_t dpi = 0;
  std::string_view source = "unavailable";  // "window" or "system" once the function was called
  std::string_view failure;                 // the event's stage; empty when there is a density
  const char* api = nullptr;                // the function that was wanted
};

// The density of the window, or of the system where there is no window.
DpiSample SampleDpi(platform::WindowHandle window, platform::Appearance& appearance);

}  // namespace korvane
