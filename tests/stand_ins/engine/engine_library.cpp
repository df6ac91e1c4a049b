#include "stand_ins/engine/engine_library.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "platform/os.h"

namespace korvane::test {
namespace {

template <typename Function>
void Bind(platform::ModuleHandle module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(platform::os().dynamic_libraries->Symbol(module, name));
}

}  // namespace

EngineLibrary::EngineLibrary() {
  const auto module = platform::os().dynamic_libraries->Load(
      std::filesystem::absolute(KORVANE_ENGINE_FOLDER) / "sing-box.dll");
  if (!module) {
    throw std::runtime_error("no engine library");
  }
  Bind(module.value(), "singbox_new_service", new_service);
  Bind(module.value(), "singbox_start_service", start_service);
  Bind(module.value(), "singbox_close_service", close_service);
  Bind(module.value(), "singbox_get_version", get_version);
  Bind(module.value(), "singbox_get_last_error", get_last_error);
  Bind(module.value(), "singbox_free_string", free_string);
  Bind(module.value(), "singbox_set_crash_output", set_crash_output);
}

std::optional<std::string> EngineLibrary::Take(char* text) const {
  if (text == nullptr) {
    return std::nullopt;
  }
  std::string copy(text);
  free_string(text);
  return copy;
}

std::optional<std::string> EngineLibrary::Version() const { return Take(get_version()); }

std::optional<std::string> EngineLibrary::LastError() const { return Take(get_last_error()); }

std::uint64_t EngineLibrary::New(const nlohmann::json& configuration) const {
  return new_service(configuration.dump().c_str());
}

std::uint64_t EngineLibrary::Start(const nlohmann::json& configuration) const {
  const std::uint64_t id = New(configuration);
  EXPECT_NE(id, 0U) << LastError().value_or("");
  EXPECT_EQ(start_service(id), 0) << LastError().value_or("");
  return id;
}

RunningService::~RunningService() { EXPECT_EQ(engine_.close_service(id_), 0); }

}  // namespace korvane::test
