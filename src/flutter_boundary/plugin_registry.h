// plugin_registry.h: gives out registrars to plug-ins by name.
#pragma once

#include <string>

#include "flutter_boundary/flutter_windows_abi.h"

namespace flutter {

class PluginRegistry {
 public:
  PluginRegistry() = default;
  virtual ~PluginRegistry() = default;
  PluginRegistry(const PluginRegistry&) = delete;
  PluginRegistry& operator=(const PluginRegistry&) = delete;

  // The registrar for a plug-in's name, unique in the application; null when there is none.
  // Window's thread; the registrar is the engine's and dies with it.
  virtual FlutterDesktopPluginRegistrarRef GetRegistrarForPlugin(
      const std::string& plugin_name) = 0;
};

}  // namespace flutter
