#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "engine/crash_output.h"
#include "engine/engine_interface.h"
#include "engine/engine_process.h"

namespace korvane::stand_in {
namespace {

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

// The failure's text becomes the last error; its code is the result.
std::int32_t Fail(const ScriptedFailure& failure) {
  EngineProcess::Get().SetLastError(failure.text);
  return failure.code;
}

std::int32_t FailUnknownService() { return Fail({1, "service not found"}); }

std::shared_ptr<Service> Create(const char* configuration) {
  return WithoutExceptions(std::shared_ptr<Service>(), [configuration] {
    if (configuration == nullptr) {
      throw ConfigurationError("decode config: no text");
    }
    return std::make_shared<Service>(ReadConfiguration(configuration));
  });
}

// Gives the failure of a start as its code.
std::int32_t Start(Service& service) {
  return WithoutExceptions(std::int32_t{1}, [&service] {
    auto failure = service.Start();
    return failure ? Fail({1, std::move(*failure)}) : 0;
  });
}

}  // namespace
}  // namespace korvane::stand_in

using korvane::stand_in::EngineProcess;

// In each function the script plays outside WithoutExceptions: what it throws is to get out.

std::uint64_t singbox_new_service(const char* configuration) {
  auto service = korvane::stand_in::Create(configuration);
  if (!service) {
    return 0;
  }
  if (const auto failure = service->options().new_service.Play()) {
    korvane::stand_in::Fail(*failure);
    return 0;
  }
  return EngineProcess::Get().Add(std::move(service));
}

std::int32_t singbox_start_service(std::uint64_t id) {
  const auto service = EngineProcess::Get().Find(id);
  if (!service) {
    return korvane::stand_in::FailUnknownService();
  }
  if (const auto failure = service->options().start_service.Play()) {
    return korvane::stand_in::Fail(*failure);
  }
  return korvane::stand_in::Start(*service);
}

std::int32_t singbox_close_service(std::uint64_t id) {
  const auto service = EngineProcess::Get().Find(id);
  if (!service) {
    return korvane::stand_in::FailUnknownService();
  }
  if (const auto failure = service->options().close_service.Play()) {
    return korvane::stand_in::Fail(*failure);
  }
  EngineProcess::Get().Remove(id);
  service->Close();
  return 0;
}

char* singbox_get_version() {
  return korvane::stand_in::OwnedByCaller(std::string(korvane::stand_in::kEngineVersion));
}

char* singbox_get_last_error() {
  return korvane::stand_in::OwnedByCaller(EngineProcess::Get().LastError());
}

void singbox_free_string(char* text) { std::free(text); }

std::int32_t singbox_set_crash_output(const char* path) {
  return korvane::stand_in::WithoutExceptions(std::int32_t{1}, [path] {
    const std::string text = path == nullptr ? "" : path;
    if (korvane::stand_in::SetCrashOutput(text)) {
      return std::int32_t{0};
    }
    return korvane::stand_in::Fail({1, "open " + text + ": can't be opened"});
  });
}
