// dart_project.h: what the interface engine is told about the Dart application.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace flutter {

// The engine's renderer. The host always starts with kDisabled.
enum class ImpellerMode : std::int32_t { kDefault = 0, kEnabled = 1, kDisabled = 2 };

// Paths are relative to the folder of the executable, whatever the working folder is.
struct DartProject {
  // The paths of a project in `folder`. The engine wants backslashes, on every system.
  static DartProject InFolder(std::wstring_view folder);

  std::wstring assets_path;
  std::wstring icu_data_path;
  std::wstring aot_library_path;
  std::string dart_entrypoint;  // empty: Dart's main
  std::vector<std::string> dart_entrypoint_arguments;
  // Passed on to the engine as they are; 0 is its default for each.
  std::array<std::int32_t, 3> engine_words{};
  ImpellerMode impeller_mode = ImpellerMode::kDefault;
  std::uint8_t engine_flag = 0;
};

}  // namespace flutter
