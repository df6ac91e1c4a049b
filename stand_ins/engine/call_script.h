// call_script.h: what one of the library's functions was told to do before its own work.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "engine/json_node.h"
#include "engine/turns.h"

namespace korvane::stand_in {

enum class CrashKind { kNone, kNullWrite, kIllegalInstruction, kAbort };
enum class ThrowKind { kNone, kStandard, kForeign };

// The code and the text with which a call is to fail.
struct ScriptedFailure {
  std::int32_t code = 1;
  std::string text;
};

// A value; copies share the count of the calls that are still to be played.
class CallScript {
 public:
  // Plays nothing.
  CallScript() = default;
  // Reads the object that README.md describes. Throws ConfigurationError.
  static CallScript Read(const JsonNode& node);

  // Plays it, in this order: makes the file, waits, waits for a file, crashes, throws, fails.
  // Nothing when the call is to go on with its own work. Throws what it was told to, and nothing
  // else.
  std::optional<ScriptedFailure> Play() const;

 private:
  Turns turns_;
  std::filesystem::path touch_;
  std::chrono::milliseconds wait_{0};
  std::filesystem::path until_file_;
  CrashKind crash_ = CrashKind::kNone;
  ThrowKind throw_ = ThrowKind::kNone;
  std::string throw_text_;
  std::optional<ScriptedFailure> failure_;
  bool active_ = false;
};

// A path of the host's system from UTF-8.
std::filesystem::path PathFromUtf8(const std::string& utf8);
// Makes an empty file, so that a test can see that a point was reached. An empty path makes none.
void Touch(const std::filesystem::path& path);

}  // namespace korvane::stand_in
