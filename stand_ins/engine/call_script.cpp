#include "engine/call_script.h"

#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "engine/crash_output.h"

namespace korvane::stand_in {
namespace {

constexpr std::chrono::milliseconds kFilePoll{5};
constexpr std::int64_t kMostMs = 24 * 3600 * 1000;

CrashKind ReadCrash(const JsonNode& node) {
  const std::string kind = node.String();
  if (kind == "null_write") {
    return CrashKind::kNullWrite;
  }
  if (kind == "illegal_instruction") {
    return CrashKind::kIllegalInstruction;
  }
  if (kind == "abort") {
    return CrashKind::kAbort;
  }
  node.Refuse("expected \"null_write\", \"illegal_instruction\" or \"abort\"");
}

std::optional<ScriptedFailure> ReadFailure(const JsonNode& node) {
  if (!node.Find("fail") && !node.Find("code")) {
    return std::nullopt;
  }
  ScriptedFailure failure;
  failure.code = static_cast<std::int32_t>(node.IntegerOr("code", 1, INT32_MIN, INT32_MAX));
  failure.text = node.StringOr("fail", "");
  return failure;
}

// The sanitizers would turn the fault into a report of their own.
__attribute__((no_sanitize("address"), no_sanitize("undefined"), no_sanitize("thread"))) void
WriteToNull() {
  int* volatile nowhere = nullptr;
  *const_cast<volatile int*>(nowhere) =
      1;  // NOLINT(clang-analyzer-core.NullDereference): asked for
}

void Crash(CrashKind kind) {
  if (kind == CrashKind::kNone) {
    return;
  }
  WriteCrashOutput();
  if (kind == CrashKind::kNullWrite) {
    WriteToNull();
  }
  if (kind == CrashKind::kIllegalInstruction) {
    __builtin_trap();
  }
  std::abort();
}

}  // namespace

CallScript CallScript::Read(const JsonNode& node) {
  node.AllowOnly({"wait_ms", "until_file", "crash", "throw", "fail", "code"});
  CallScript script;
  script.wait_ = std::chrono::milliseconds(node.IntegerOr("wait_ms", 0, 0, kMostMs));
  script.until_file_ = PathFromUtf8(node.StringOr("until_file", ""));
  if (const auto crash = node.Find("crash")) {
    script.crash_ = ReadCrash(*crash);
  }
  if (const auto text = node.Find("throw")) {
    script.throw_text_ = text->String();
  }
  script.failure_ = ReadFailure(node);
  return script;
}

std::optional<ScriptedFailure> CallScript::Play() const {
  std::this_thread::sleep_for(wait_);
  std::error_code absent;
  while (!until_file_.empty() && !std::filesystem::exists(until_file_, absent)) {
    std::this_thread::sleep_for(kFilePoll);
  }
  Crash(crash_);
  if (throw_text_) {
    throw std::runtime_error(*throw_text_);
  }
  return failure_;
}

std::filesystem::path PathFromUtf8(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

}  // namespace korvane::stand_in
