#include "recorder/session_facts.h"

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/os.h"
#include "recorder/graphics_adapter.h"

namespace korvane {

namespace {

struct AdapterRelease {
  void operator()(GraphicsAdapter* adapter) const { adapter->table->release(adapter); }
};
using OwnedAdapter = std::unique_ptr<GraphicsAdapter, AdapterRelease>;

// The engine's adapter, or none.
OwnedAdapter AdapterOf(FlutterDesktopEngineRef engine) {
  void* given = nullptr;
  const bool found = FlutterDesktopEngineGetGraphicsAdapter(engine, &given);
  // Owned before the answer is looked at: an adapter that came with a "no" is released like others.
  OwnedAdapter adapter(static_cast<GraphicsAdapter*>(given));
  return found ? std::move(adapter) : nullptr;
}

// The text of `gpu_adapter`. A failure's stage stands there in the name's place.
std::string SampleAdapter(FlutterDesktopEngineRef engine, std::vector<SamplingFailure>& failures) {
  if (engine == nullptr) {
    return "engine_not_created";
  }
  const auto failed = [&failures](std::string_view stage, flutter::EncodableMap fields) {
    failures.push_back({stage, std::move(fields)});
    return std::string(stage);
  };
  const OwnedAdapter adapter = AdapterOf(engine);
  if (adapter == nullptr) {
    return failed("graphics_adapter_unavailable", {});
  }
  AdapterName name = NameOfAdapter(*adapter);
  switch (name.outcome) {  // coverage: every outcome has its case
    case AdapterOutcome::kDescriptionFailed:
      return failed("adapter_description_failed", {{"hresult", std::int64_t{name.hresult}}});
    case AdapterOutcome::kEncodingFailed:
      return failed("adapter_description_encoding_failed", {});
    case AdapterOutcome::kNamed:
      break;
  }
  return std::move(name.utf8);
}

}  // namespace

std::string_view RendererName(int impeller_mode) {
  switch (impeller_mode) {
    case 1:
      return "impeller_enabled";
    case 2:
      return "impeller_disabled";
    default:
      return "impeller_default";
  }
}

DpiSample SampleDpi(platform::WindowHandle window, platform::Appearance& appearance) {
  const bool of_window = window != nullptr;
  DpiSample sample;
  sample.api = of_window ? "GetDpiForWindow" : "GetDpiForSystem";
  const platform::UserModule module = appearance.FindUserModule();
  if (module == nullptr) {
    sample.failure = "dpi_module_unavailable";
    return sample;
  }
  const platform::DensityFunction function = appearance.FindDensityFunction(module, sample.api);
  if (function == nullptr) {
    sample.failure = "dpi_api_unavailable";
    return sample;
  }
  sample.source = of_window ? "window" : "system";
  sample.dpi =
      of_window ? appearance.WindowDensity(function, window) : appearance.SystemDensity(function);
  if (sample.dpi == 0) {
    sample.failure = "dpi_query_failed";
  }
  return sample;
}

SessionFacts SampleSessionFacts(platform::WindowHandle window, FlutterDesktopEngineRef engine,
                                int impeller_mode) {
  SessionFacts sampled;
  std::string adapter = SampleAdapter(engine, sampled.failures);
  const DpiSample dpi = SampleDpi(window, *platform::os().appearance);
  if (!dpi.failure.empty()) {
    sampled.failures.push_back({dpi.failure, {{"api", dpi.api}}});
  }
  sampled.facts = {
      {"remote_session", platform::os().windows->RemoteSession()},
      {"gpu_adapter", std::move(adapter)},
      {"renderer", std::string(RendererName(impeller_mode))},
      {"display_count", platform::os().windows->DisplayCount()},
      {"dpi", std::int64_t{dpi.dpi}},
      {"dpi_source", std::string(dpi.source)},
  };
  return sampled;
}

}  // namespace korvane
