#include "engine/engine_interface.h"
#include "engine/export_tools.h"

namespace korvane::stand_in {
namespace {

void Release(std::uint64_t id, Service& service) {
  EngineProcess::Get().Remove(id);
  service.Close();
}

// Whatever the script does, throwing included, a service that is to be released is released.
std::optional<ScriptedFailure> PlayClose(std::uint64_t id, Service& service) {
  const bool release = service.options().release_on_failed_close;
  try {
    auto failure = service.options().close_service.Play();
    if (!failure || release) {
      Release(id, service);
    }
    return failure;
  } catch (...) {
    if (release) {
      Release(id, service);
    }
    throw;
  }
}

}  // namespace
}  // namespace korvane::stand_in

std::int32_t singbox_close_service(std::uint64_t id) {
  const auto service = korvane::stand_in::EngineProcess::Get().Find(id);
  if (!service) {
    return korvane::stand_in::FailUnknownService();
  }
  korvane::stand_in::MakeNoise(service->options());
  const auto failure = korvane::stand_in::PlayClose(id, *service);
  return failure ? korvane::stand_in::Fail(*failure) : 0;
}
