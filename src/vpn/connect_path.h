// connect_path.h: turns a configuration text into a running engine.
//
// The road of one start, all of it under lifecycle_mutex, on a worker thread:
//
//   refuse (integrity, engine, text, rights)  >  tear down what runs  >  [TUN: wait 350 ms]
//   >  evidence session  >  engine  >  [stale TUN name: wait 500 ms, once more under a new name]
//   >  state  >  system proxy  >  "vpn_connected"
//
// A start that is refused leaves a running tunnel alone. A failure is told on the error stream, as
// an `onVPNError` event followed by "vpn_disconnected", and to the caller; from the evidence
// session on it is also recorded as a failed start. After a failed start config_text is empty,
// while the stored file keeps its text.
#pragma once

#include <string>

namespace korvane {

inline constexpr unsigned kTunSettleMs = 350;
inline constexpr unsigned kTunRetryMs = 500;

// True when the engine runs on the text. On failure the outputs (either may be null) say why. No
// exception leaves it, but for those of the failure step itself.
bool StartBox(const std::string& config, std::string* code_out, std::string* message_out);

// Validates the text, makes it config_text and stores it. config_text stays replaced when the file
// could not be written; false then, and for an invalid text.
bool SaveVPNPreference(const std::string& text);

// Fills config_text from the stored file, with whatever that gives; false when it is unusable.
bool LoadVPNPreference();

}  // namespace korvane
