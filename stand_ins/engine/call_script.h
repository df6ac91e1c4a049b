// call_script.h: what one of the library's functions was told to do before its own work.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "engine/json_node.h"

namespace korvane::stand_in {

enum class CrashKind { kNone, kNullWrite, kIllegalInstruction, kAbort };

// The code and the text with which a call is to fail.
struct ScriptedFailure {
  std::int32_t code = 1;
  std::string text;
};

// A value.
class CallScript {
 public:
  // Plays nothing.
  CallScript() = default;
  // Reads the object that README.md describes. Throws ConfigurationError.
  static CallScript Read(const JsonNode& node);

  // Plays it, in this order: waits, waits for a file, crashes, throws, fails. Nothing when the call
  // is to go on with its own work. Throws what it was told to, and nothing else.
  std::optional<ScriptedFailure> Play() const;

 private:
  std::chrono::milliseconds wait_{0};
  std::filesystem::path until_file_;
  CrashKind crash_ = CrashKind::kNone;
  std::optional<std::string> throw_text_;
  std::optional<ScriptedFailure> failure_;
};

// A path of the host's system from UTF-8.
std::filesystem::path PathFromUtf8(const std::string& utf8);

}  // namespace korvane::stand_in
