// export_tools.h: what the exported functions have in common.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include "engine/engine_process.h"

namespace korvane::stand_in {

// Runs a step of an exported function; an exception, which may not pass the C boundary, becomes the
// last error and the given result.
template <typename T, typename Step>
T WithoutExceptions(T failed, Step step) {
  try {
    return step();
  } catch (const std::exception& error) {
    EngineProcess::Get().SetLastError(error.what());
    return failed;
  }
}

// A copy that the caller frees with singbox_free_string; null for nothing.
char* OwnedByCaller(const std::optional<std::string>& text);

// Writes the session's noise, where there is any.
void MakeNoise(const SessionOptions& options);

// The failure told by the script becomes the last error; its code is the result.
std::int32_t Fail(const ScriptedFailure& failure);

// "service not found" as the last error, and a code for it.
std::int32_t FailUnknownService();

}  // namespace korvane::stand_in
