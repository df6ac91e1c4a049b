// engine_binding.h: finds the engine library beside the executable and binds its exports.
//
// The engine is "sing-box.dll" in the executable's folder, or in "dll" below it. It is never
// unloaded. The engine writes to standard error on its own, outside every redaction, so a process
// whose standard error can't be sent nowhere runs without an engine.
#pragma once

#include <optional>
#include <string>

#include "vpn/engine_table.h"

namespace korvane {

// Fills the engine table; true when all six required exports are bound. Window thread, before any
// connect can be asked for. After a failure the table holds what was found, and every start tells
// what is missing. Reasons go to the error stream.
bool LoadEngine();

// The engine's version; a word in its place when there is no engine, no version, or a crash in the
// engine's own code, which is survived. Never empty. Any thread.
std::string ReadCoreVersion();

// The text of the engine's last failure, made valid UTF-8 and redacted; nothing when it gives none.
// On the thread that just failed, with lifecycle_mutex held. Unredacted engine text goes nowhere.
std::optional<std::string> ReadEngineError(const EngineTable& engine);

}  // namespace korvane
