// plugin_registrant.h: connects the Dart side's plug-ins with their native halves.
//
// Each native half is a library beside the executable and an ordinary import of it: the process
// doesn't start when one is missing.
#pragma once

#include "flutter_boundary/plugin_registry.h"

namespace korvane {

// Asks for a registrar for each plug-in and hands it, null or not, to the plug-in's registration
// function before it asks for the next. Once, on the window's thread, before the first frame.
void RegisterPlugins(flutter::PluginRegistry* registry);

}  // namespace korvane
