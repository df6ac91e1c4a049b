// system_calls.h: what the system libraries' stand-ins share: their settings and their record.
//
// Each stand-in is a small library with a system library's name. Laid beside a program and
// preferred over the system's own (README.md), it writes down what the program asks of the system,
// where Wine ignores it, and takes the failures that Wine never has.
//
// Settings: lines of KEY=VALUE in "system_stand_ins.txt" beside the library, or in the file that
// the environment variable KORVANE_SYSTEM_STAND_INS names; read anew at each call, so a test may
// change them while the program runs. A missing file is one without lines.
//
// Record: one JSON object per line, appended whole, to "system_calls.jsonl" beside the library, or
// to the file that KORVANE_SYSTEM_CALLS names. All stand-ins write to one file, so the lines stand
// in the order of the calls. Any thread and process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "nlohmann/json.hpp"

namespace korvane::stand_in {

using Json = nlohmann::ordered_json;

// The value of a key, as wide text; nothing when it isn't set.
std::optional<std::wstring> Setting(const char* key);
// The same as a number, decimal or with 0x; nothing for what is none.
std::optional<std::uint32_t> NumberSetting(const char* key);

// Appends one line: {"library":..., "call":..., then the arguments}. A failure is nobody's
// business.
void RecordCall(const char* library, const char* call, const Json& arguments);

// A text as JSON: null for a null pointer; what is no text becomes U+FFFD.
Json TextOrNull(const wchar_t* text);

}  // namespace korvane::stand_in
