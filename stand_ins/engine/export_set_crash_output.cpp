#include "engine/crash_output.h"
#include "engine/engine_interface.h"
#include "engine/export_tools.h"

std::int32_t singbox_set_crash_output(const char* path) {
  using korvane::stand_in::EngineProcess;
  if (const auto failure = EngineProcess::Get().options().set_crash_output.Play()) {
    return korvane::stand_in::Fail(*failure);
  }
  return korvane::stand_in::WithoutExceptions(std::int32_t{1}, [path] {
    const std::string text = path == nullptr ? "" : path;
    if (korvane::stand_in::SetCrashOutput(text)) {
      return std::int32_t{0};
    }
    return korvane::stand_in::Fail({1, "open " + text + ": can't be opened"});
  });
}
