#include "engine/export_tools.h"

#include <cstdlib>
#include <cstring>

#include "engine/host_process.h"

namespace korvane::stand_in {

char* OwnedByCaller(const std::optional<std::string>& text) {
  if (!text) {
    return nullptr;
  }
  // The C library's memory: the owner is on the other side of a C interface.
  auto* copy = static_cast<char*>(std::malloc(text->size() + 1));
  if (copy != nullptr) {
    std::memcpy(copy, text->c_str(), text->size() + 1);
  }
  return copy;
}

void MakeNoise(const SessionOptions& options) {
  if (!options.noise.empty()) {
    WriteToStandardError(options.noise + "\n");
  }
}

std::int32_t Fail(const ScriptedFailure& failure) {
  EngineProcess::Get().SetLastError(failure.text);
  return failure.code;
}

std::int32_t FailUnknownService() { return Fail({1, "service not found"}); }

}  // namespace korvane::stand_in
