#include "support/flutter/fake_plugins.h"

#include "support/flutter/fake_flutter_library.h"

#define KORVANE_DEFINE_PLUGIN(plugin)                                              \
  void plugin##RegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) { \
    using namespace korvane::test::fake_flutter;                                   \
    NoteCall(#plugin "RegisterWithRegistrar " + RegistrarName(registrar));         \
  }

KORVANE_FOR_EACH_PLUGIN(KORVANE_DEFINE_PLUGIN)
