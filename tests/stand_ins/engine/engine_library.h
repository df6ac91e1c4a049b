// engine_library.h: the engine's functions, bound by name from the library file as the host does
// it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace korvane::test {

// The library is never unloaded.
class EngineLibrary {
 public:
  // The one in the build's folder of programs. Throws when it can't be loaded.
  EngineLibrary();

  std::uint64_t (*new_service)(const char*) = nullptr;
  std::int32_t (*start_service)(std::uint64_t) = nullptr;
  std::int32_t (*close_service)(std::uint64_t) = nullptr;
  char* (*get_version)() = nullptr;
  char* (*get_last_error)() = nullptr;
  void (*free_string)(char*) = nullptr;
  std::int32_t (*set_crash_output)(const char*) = nullptr;

  // The texts, copied and freed; nothing for null.
  std::optional<std::string> Version() const;
  std::optional<std::string> LastError() const;

  std::uint64_t New(const nlohmann::json& configuration) const;
  // A service that runs; a failure of the test when it doesn't.
  std::uint64_t Start(const nlohmann::json& configuration) const;

 private:
  std::optional<std::string> Take(char* text) const;
};

// A service that runs while the object lives.
class RunningService {
 public:
  RunningService(const EngineLibrary& engine, const nlohmann::json& configuration)
      : engine_(engine), id_(engine.Start(configuration)) {}
  ~RunningService();
  RunningService(const RunningService&) = delete;
  RunningService& operator=(const RunningService&) = delete;

 private:
  const EngineLibrary& engine_;
  const std::uint64_t id_;
};

}  // namespace korvane::test
