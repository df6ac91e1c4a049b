// fake_plugins.h: the registration functions of the eight plug-in libraries. Each notes a call,
// "TrayManagerPluginRegisterWithRegistrar " and the name that its registrar was asked for under
// ("null" for a null one).
#pragma once

#include "flutter_boundary/flutter_windows_abi.h"

#define KORVANE_FOR_EACH_PLUGIN(DO)     \
  DO(AppLinksPluginCApi)                \
  DO(ConnectivityPlusWindowsPlugin)     \
  DO(FlutterSecureStorageWindowsPlugin) \
  DO(ScreenRetrieverWindowsPluginCApi)  \
  DO(SharePlusWindowsPluginCApi)        \
  DO(TrayManagerPlugin)                 \
  DO(UrlLauncherWindows)                \
  DO(WindowManagerPlugin)

#define KORVANE_DECLARE_PLUGIN(plugin)                    \
  KORVANE_FLUTTER_API void plugin##RegisterWithRegistrar( \
      FlutterDesktopPluginRegistrarRef registrar);

extern "C" {
KORVANE_FOR_EACH_PLUGIN(KORVANE_DECLARE_PLUGIN)
}
