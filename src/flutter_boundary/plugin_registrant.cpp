#include "flutter_boundary/plugin_registrant.h"

// Each of them is exported by the library of its plug-in.
extern "C" {
KORVANE_FLUTTER_API void AppLinksPluginCApiRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void ConnectivityPlusWindowsPluginRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void FlutterSecureStorageWindowsPluginRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void ScreenRetrieverWindowsPluginCApiRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void SharePlusWindowsPluginCApiRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void TrayManagerPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void UrlLauncherWindowsRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef);
KORVANE_FLUTTER_API void WindowManagerPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef);
}

namespace korvane {

namespace {

// The native half that a name has in this host: none.
void RegisterNothing(FlutterDesktopPluginRegistrarRef) {}

struct Plugin {
  const char* name;
  void (*register_with)(FlutterDesktopPluginRegistrarRef registrar);
};

}  // namespace

void RegisterPlugins(flutter::PluginRegistry* registry) {
  const Plugin plugins[] = {
      {"AppLinksPluginCApi", AppLinksPluginCApiRegisterWithRegistrar},
      {"ConnectivityPlusWindowsPlugin", ConnectivityPlusWindowsPluginRegisterWithRegistrar},
      {"FlutterSecureStorageWindowsPlugin", FlutterSecureStorageWindowsPluginRegisterWithRegistrar},
      {"ScreenRetrieverWindowsPluginCApi", ScreenRetrieverWindowsPluginCApiRegisterWithRegistrar},
      // Kept on purpose: the engine is to know the name, although nothing stands behind it.
      {"SentryFlutterPlugin", RegisterNothing},
      {"SharePlusWindowsPluginCApi", SharePlusWindowsPluginCApiRegisterWithRegistrar},
      {"TrayManagerPlugin", TrayManagerPluginRegisterWithRegistrar},
      {"UrlLauncherWindows", UrlLauncherWindowsRegisterWithRegistrar},
      {"WindowManagerPlugin", WindowManagerPluginRegisterWithRegistrar},
  };
  for (const Plugin& plugin : plugins) {
    plugin.register_with(registry->GetRegistrarForPlugin(plugin.name));
  }
}

}  // namespace korvane
