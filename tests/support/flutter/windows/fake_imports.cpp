// The import pointers by which the host calls the engine's library and the plug-ins. The linker
// makes them from an import library; for functions that are defined in the same program it doesn't.
#include "support/flutter/fake_plugins.h"

#define KORVANE_FOR_EACH_FLUTTER_FUNCTION(DO)              \
  DO(FlutterDesktopEngineCreate)                           \
  DO(FlutterDesktopEngineDestroy)                          \
  DO(FlutterDesktopEngineGetGraphicsAdapter)               \
  DO(FlutterDesktopEngineGetMessenger)                     \
  DO(FlutterDesktopEngineGetPluginRegistrar)               \
  DO(FlutterDesktopEngineReloadSystemFonts)                \
  DO(FlutterDesktopEngineSetNextFrameCallback)             \
  DO(FlutterDesktopGetDpiForMonitor)                       \
  DO(FlutterDesktopMessengerAddRef)                        \
  DO(FlutterDesktopMessengerIsAvailable)                   \
  DO(FlutterDesktopMessengerLock)                          \
  DO(FlutterDesktopMessengerRelease)                       \
  DO(FlutterDesktopMessengerSend)                          \
  DO(FlutterDesktopMessengerSendResponse)                  \
  DO(FlutterDesktopMessengerSendWithReply)                 \
  DO(FlutterDesktopMessengerSetCallback)                   \
  DO(FlutterDesktopMessengerUnlock)                        \
  DO(FlutterDesktopResyncOutputStreams)                    \
  DO(FlutterDesktopViewControllerCreate)                   \
  DO(FlutterDesktopViewControllerDestroy)                  \
  DO(FlutterDesktopViewControllerForceRedraw)              \
  DO(FlutterDesktopViewControllerGetView)                  \
  DO(FlutterDesktopViewControllerHandleTopLevelWindowProc) \
  DO(FlutterDesktopViewGetHWND)

#define KORVANE_DEFINE_IMPORT(function) decltype(&function) __imp_##function = function;
#define KORVANE_DEFINE_PLUGIN_IMPORT(plugin) KORVANE_DEFINE_IMPORT(plugin##RegisterWithRegistrar)

extern "C" {
KORVANE_FOR_EACH_FLUTTER_FUNCTION(KORVANE_DEFINE_IMPORT)
KORVANE_FOR_EACH_PLUGIN(KORVANE_DEFINE_PLUGIN_IMPORT)
}
