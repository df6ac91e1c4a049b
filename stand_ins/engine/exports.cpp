#include <cstdlib>
#include <utility>

#include "engine/engine_interface.h"
#include "engine/export_tools.h"

namespace korvane::stand_in {
namespace {

std::shared_ptr<Service> Create(const char* configuration) {
  return WithoutExceptions(std::shared_ptr<Service>(), [configuration] {
    if (configuration == nullptr) {
      throw ConfigurationError("decode config: no text");
    }
    return EngineProcess::Get().Create(configuration);
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
  korvane::stand_in::MakeNoise(service->options());
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
  korvane::stand_in::MakeNoise(service->options());
  if (const auto failure = service->options().start_service.Play()) {
    return korvane::stand_in::Fail(*failure);
  }
  return korvane::stand_in::Start(*service);
}

char* singbox_get_version() {
  const auto& options = EngineProcess::Get().options();
  if (options.get_version.Play()) {
    return nullptr;
  }
  return korvane::stand_in::OwnedByCaller(options.version);
}

char* singbox_get_last_error() {
  if (EngineProcess::Get().options().get_last_error.Play()) {
    return nullptr;
  }
  return korvane::stand_in::OwnedByCaller(EngineProcess::Get().LastError());
}

void singbox_free_string(char* text) {
  EngineProcess::Get().options().free_string.Play();
  std::free(text);
}
