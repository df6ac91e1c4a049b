// runtime_diagnostics.h: one map that tells a support reader what this machine and this session
// look like right now. It changes nothing.
//
// The method copies what belongs to tunnel control on the window thread; the worker then reads the
// rest without any lock of it, which may take seconds, so that a report neither holds up a connect
// nor changes its mind in the middle. Texts are valid UTF-8; the egress values are those of
// egress_report.h, under its names.
#pragma once

#include <optional>
#include <string>

#include "egress/egress_report.h"
#include "flutter_boundary/encodable_value.h"
#include "vpn/native_error_slot.h"
#include "vpn/vpn_workers.h"

namespace korvane {

// What the worker is handed with its result.
struct RuntimeDiagnosticsJob {
  flutter::EncodableMap startup;  // the startup recorder's snapshot
  std::string config;             // empty when nothing runs or starts
  bool running = false;
  bool autoConfigureProxy = false;
  std::string selectorTag;  // the group that the asker believes in; may be empty
  std::optional<NativeErrorEvent> lastError;
};

// Answers with the map; there is no failure answer. Kept on purpose: unlike the other workers this
// one has no catch. An exception that one of its readings lets through (a port in the configuration
// that is no int) leaves the thread and ends the process.
void RuntimeDiagnosticsWorker(const OwnedResult& result, const RuntimeDiagnosticsJob& job);

// "CODE: message", or the message alone when there is no code.
std::string LastNativeErrorText(const NativeErrorEvent& error);

// A scalar as null, bool, 64-bit integer or string; a table as a list of maps.
flutter::EncodableValue ConvertEgressValue(const EgressValue& value);

}  // namespace korvane
