// engine_table.h: the engine's C interface, as the rest of tunnel control relies on it.
//
// Filled once at start-up (engine_binding.h); a member that can't be resolved stays null. Another
// engine can stand behind it. The three service calls are made with lifecycle_mutex held, so at
// most one is in progress; the version is read without it.
#pragma once

#include <cstdint>

#include "platform/dynamic_libraries.h"

namespace korvane {

struct EngineTable {
  platform::ModuleHandle module = nullptr;

  // Takes the configuration as zero-terminated UTF-8. 0 when it could not be parsed; nothing runs
  // yet.
  std::uint64_t (*singbox_new_service)(const char* config) = nullptr;
  // 0 when the service runs. After any other value it still exists and must be closed.
  std::int32_t (*singbox_start_service)(std::uint64_t service_id) = nullptr;
  // 0 confirms the close. After any other value the engine may still hold its resources.
  std::int32_t (*singbox_close_service)(std::uint64_t service_id) = nullptr;
  // A string of the caller's, or null; to be freed with singbox_free_string.
  char* (*singbox_get_version)() = nullptr;
  // The text of the most recent failure, owned likewise, or null.
  char* (*singbox_get_last_error)() = nullptr;
  void (*singbox_free_string)(char* text) = nullptr;
  // Where to write a fatal crash; the empty path disarms. Optional: a core may lack it. 0 is
  // success.
  std::int32_t (*singbox_set_crash_output)(const char* path) = nullptr;
};

}  // namespace korvane
